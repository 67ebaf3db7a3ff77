#include "mw/ByteBuffer.hpp"
#include "mw/AutoPtr.hpp"
#include "mw/Hex.hpp"

#include <gtest/gtest.h>
#include <limits>
#include <string>

using mw::ByteBuffer;

namespace {
struct Counted {
    static int alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
    int value = 7;
};
int Counted::alive = 0;
} // namespace

TEST(ByteBuffer, AccessChecksTheIndexAndOffsetPlusLength) {
    const ByteBuffer buffer{1, 2, 3, 4};
    try {
        buffer.get(4);
        FAIL() << "no mw::IndexException";
    } catch (const mw::IndexException& e) {
        EXPECT_NE(e.file().find("mw/ByteBuffer.hpp"), std::string::npos) << e.file();
        EXPECT_EQ(std::string(e.what()), "Error in: " + e.file() + " (" + std::to_string(e.line()) +
                                             ") " + e.function() + ", Description: invalid index ");
    }
    EXPECT_TRUE(buffer.get(4, 0).empty());
    using Range = std::pair<std::size_t, std::size_t>; // the last: offset + length wraps around
    for (const auto& [offset, length] : {Range{4, 1}, Range{5, 0}, Range{2, 3}, Range{2, SIZE_MAX}})
        EXPECT_THROW(buffer.get(offset, length), mw::IndexException) << offset << "+" << length;
    EXPECT_THROW(ByteBuffer().get(0), mw::IndexException);
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
    buffer.insert(1, buffer.data() + 4, 2);
    EXPECT_EQ(buffer, (ByteBuffer{1, 2, 3, 2, 3, 1, 2, 3}));
}

// A failed allocation is a bad_alloc that says so.
TEST(CleanUpAllocPolicy, ReportsExhaustedMemory) {
    try {
        ByteBuffer impossible(std::numeric_limits<std::size_t>::max() / 2);
        FAIL() << "allocated " << impossible.size() << " bytes";
    } catch (const std::bad_alloc& e) {
        EXPECT_STREQ(e.what(), "CleanUpAllocPolicy: Allocating memory failed!");
    }
}

// Either case and blanks: every test that writes bytes in hexadecimal, p15tool's --id.
TEST(Hex, RejectsOddLengthsAndNonDigits) {
    EXPECT_TRUE(mw::fromHex(" ").empty());
    for (const char* bad : {"ABC", "0G", "0x12"})
        EXPECT_THROW(mw::fromHex(bad), mw::IllegalArgumentException) << bad;
}

// Dereferencing null throws (text and site as ByteBuffer's); self-assignment and reset of a shared
// object keep the count right, the last owner releases; T[] and byte arrays, which the crypto
// provider hands out, are released with delete[] (under the address sanitizer a scalar delete
// fails here).
TEST(AutoPtr, TheLastOwnerReleasesAndArraysWithDeleteArray) {
    EXPECT_THROW(static_cast<void>(mw::AutoPtr<Counted>()->value), mw::NullPointerException);
    EXPECT_THROW(*mw::AutoPtr<Counted>(nullptr), mw::NullPointerException);
    {
        mw::AutoPtr<Counted> owner(new Counted);
        mw::AutoPtr<Counted>& alias = owner;
        owner = alias;
        owner = std::move(alias);
        EXPECT_EQ(owner->value, 7);
        mw::AutoPtr<Counted> sharer(owner);
        owner.reset(new Counted);
        EXPECT_EQ(Counted::alive, 2);
        sharer.reset();
        EXPECT_EQ(Counted::alive, 1);
        mw::AutoPtr<Counted[]> array(new Counted[3]);
        const mw::AutoPtr<Counted[]> copy = array;
        array.reset(new Counted[2]);
        EXPECT_EQ(Counted::alive, 6);
    }
    EXPECT_EQ(Counted::alive, 0);
    mw::AutoPtr<unsigned char> bytes(new unsigned char[16]());
    bytes.reset(new unsigned char[32]());
    EXPECT_EQ(*bytes, 0);
}
