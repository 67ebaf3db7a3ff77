// Every block a buffer hands back to the runtime is wiped first.
#include "FreeHook.hpp"
#include "mw/ByteBuffer.hpp"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

mw::ByteBuffer pattern() {
    return mw::ByteBuffer(16);
}

} // namespace

using namespace freehook;

TEST(BufferWipe, TheHookSeesUnwipedMemory) {
    // Guards the other tests: a block freed with its data must be noticed.
    auto* raw = static_cast<unsigned char*>(std::malloc(8));
    watch(raw, 8);
    std::free(raw);
    EXPECT_TRUE(watchedBlockFreed());
    EXPECT_FALSE(watchedBlockWasZero());
}

TEST(BufferWipe, DestructorAndClearWipe) {
    {
        mw::ByteBuffer buffer = pattern();
        watch(buffer);
    }
    EXPECT_TRUE(releasedAsZeros());

    mw::ByteBuffer buffer = pattern();
    watch(buffer);
    buffer.clear();
    EXPECT_TRUE(releasedAsZeros());
}

TEST(BufferWipe, ReassignmentWipesTheOldBlock) {
    mw::ByteBuffer target = pattern();
    const mw::ByteBuffer source{1, 2, 3};
    watch(target);
    target = source;
    EXPECT_TRUE(releasedAsZeros());

    watch(target);
    target = mw::ByteBuffer{4, 5};
    EXPECT_TRUE(releasedAsZeros());
}

TEST(BufferWipe, ResizeWipesTheOldBlockWhenGrowingAndShrinking) {
    mw::ByteBuffer buffer = pattern();
    watch(buffer);
    buffer.resize(32);
    EXPECT_TRUE(releasedAsZeros());
    EXPECT_EQ(buffer.get(15), 0xA5);

    watch(buffer);
    buffer.resize(4);
    EXPECT_TRUE(releasedAsZeros());
    EXPECT_EQ(buffer.get(3), 0xA5);

    watch(buffer);
    buffer.resize(0);
    EXPECT_TRUE(releasedAsZeros());
}

TEST(BufferWipe, InsertAndAppendWipeTheOldBlock) {
    mw::ByteBuffer buffer = pattern();
    watch(buffer);
    buffer.insert(3, mw::ByteBuffer{1, 2});
    EXPECT_TRUE(releasedAsZeros());

    watch(buffer);
    buffer.append(buffer);
    EXPECT_TRUE(releasedAsZeros());
    EXPECT_EQ(buffer.size(), 36u);
}
