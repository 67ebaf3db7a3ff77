#include "mw/ByteBuffer.hpp"

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

using mw::ByteBuffer;

namespace {

// Runs `action`, which must throw mw::IndexException from the buffer
// header's index check, and returns nothing; fails the test otherwise.
template <class Action> void expectIndexError(Action action) {
    try {
        action();
        FAIL() << "no mw::IndexException";
    } catch (const mw::IndexException& e) {
        EXPECT_NE(e.file().find("mw/ByteBuffer.hpp"), std::string::npos) << e.file();
        EXPECT_NE(e.function().find("get"), std::string::npos) << e.function();
        const std::string expected = "Error in: " + e.file() + " (" + std::to_string(e.line()) +
                                     ") " + e.function() + ", Description: invalid index ";
        EXPECT_EQ(std::string(e.what()), expected);
    }
}

std::vector<unsigned char> contents(const ByteBuffer& buffer) {
    return std::vector<unsigned char>(buffer.begin(), buffer.end());
}

} // namespace

// What an empty buffer holds and how growth fills; the wipe tests check what
// each operation keeps of the old contents.
TEST(ByteBuffer, EmptyBuffersHoldNoBlockAndGrowthIsZeroFilled) {
    EXPECT_EQ(ByteBuffer().data(), nullptr);
    EXPECT_EQ(ByteBuffer(0).data(), nullptr);
    EXPECT_EQ(contents(ByteBuffer(5)), std::vector<unsigned char>(5, 0));
    ByteBuffer buffer{1, 2, 3};
    buffer.resize(5);
    EXPECT_EQ(contents(buffer), (std::vector<unsigned char>{1, 2, 3, 0, 0}));
    const unsigned char* block = buffer.data();
    buffer.resize(5);
    EXPECT_EQ(buffer.data(), block);
    buffer.resize(0);
    EXPECT_EQ(buffer.data(), nullptr);
    ByteBuffer empty;
    empty.append(nullptr, 0);
    EXPECT_EQ(empty.data(), nullptr);
    EXPECT_EQ(ByteBuffer(), ByteBuffer(0));
    EXPECT_NE((ByteBuffer{1, 2}), (ByteBuffer{1, 2, 0}));
}

TEST(ByteBuffer, CopiesAreDeepAndMovesLeaveTheSourceEmpty) {
    ByteBuffer original{0xAA, 0xBB};
    ByteBuffer copy(original);
    copy.data()[0] = 0x11;
    EXPECT_EQ(original.get(0), 0xAA);
    const ByteBuffer& alias = original;
    original = alias;
    EXPECT_EQ(original, (ByteBuffer{0xAA, 0xBB}));

    ByteBuffer moved(std::move(copy));
    EXPECT_EQ(copy.data(), nullptr);
    original = std::move(moved);
    EXPECT_EQ(contents(original), (std::vector<unsigned char>{0x11, 0xBB}));
    EXPECT_TRUE(moved.empty());
}

TEST(ByteBuffer, SingleElementAccessChecksTheIndex) {
    ByteBuffer buffer{1, 2, 3};
    EXPECT_EQ(buffer.get(2), 3);
    expectIndexError([&] { buffer.get(3); });
    expectIndexError([] { ByteBuffer().get(0); });
}

TEST(ByteBuffer, RangeAccessChecksOffsetPlusLength) {
    ByteBuffer buffer{1, 2, 3, 4};
    EXPECT_EQ(buffer.get(1, 2), (ByteBuffer{2, 3}));
    EXPECT_EQ(buffer.get(0, 4), buffer);
    EXPECT_TRUE(buffer.get(4, 0).empty());
    expectIndexError([&] { buffer.get(4, 1); });
    expectIndexError([&] { buffer.get(5, 0); });
    expectIndexError([&] { buffer.get(2, 3); });
    // offset + length wraps around the size type.
    expectIndexError([&] { buffer.get(2, std::numeric_limits<std::size_t>::max()); });
}

// Inserting part of itself reads the old contents, not the moved ones.
TEST(ByteBuffer, InsertPlacesTheRunAtThePositionEvenFromItself) {
    ByteBuffer buffer{1, 5};
    const unsigned char run[] = {2, 3, 4};
    buffer.insert(1, run, 3);
    EXPECT_EQ(buffer, (ByteBuffer{1, 2, 3, 4, 5}));
    EXPECT_THROW(buffer.insert(6, run, 1), mw::IndexException);
    buffer = ByteBuffer{1, 2, 3};
    buffer.append(buffer);
    EXPECT_EQ(buffer, (ByteBuffer{1, 2, 3, 1, 2, 3}));
    buffer.insert(1, buffer.data() + 4, 2);
    EXPECT_EQ(buffer, (ByteBuffer{1, 2, 3, 2, 3, 1, 2, 3}));
}

TEST(CleanUpAllocPolicy, RefusesSizesBeyondTheAddressableMaximum) {
    // For bytes every size is allowed; wider elements make the check reachable.
    mw::detail::CleanUpAllocPolicy<std::uint32_t, 64> policy;
    try {
        policy.assertSize(std::numeric_limits<std::size_t>::max());
        FAIL() << "no mw::IllegalArgumentException";
    } catch (const mw::IllegalArgumentException& e) {
        EXPECT_NE(e.file().find("mw/ByteBuffer.hpp"), std::string::npos);
        const std::string what = e.what();
        const std::string description =
            "Description: Invalid argument \"size\". Value is bigger as possible max_size";
        EXPECT_EQ(what.substr(what.size() - description.size()), description);
    }
    EXPECT_NO_THROW(policy.assertSize(policy.max_size()));
}

TEST(CleanUpAllocPolicy, ReportsExhaustedMemoryAsBadAlloc) {
    mw::detail::CleanUpAllocPolicy<unsigned char, 64> policy;
    EXPECT_EQ(policy.allocate(0), nullptr);
    try {
        ByteBuffer impossible(std::numeric_limits<std::size_t>::max() / 2);
        FAIL() << "allocated " << impossible.size() << " bytes";
    } catch (const std::bad_alloc& e) {
        EXPECT_STREQ(e.what(), "CleanUpAllocPolicy: Allocating memory failed!");
    }
}
