// Looks at every block a buffer hands back to the runtime: this binary
// replaces free() with a forwarder that inspects one watched block just
// before it is really freed.
#include "mw/ByteBuffer.hpp"

#include <algorithm>
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#define P15_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define P15_TEST_ASAN 1
#endif
#endif

// The free() this one replaces: the sanitizer's when it owns the heap,
// otherwise the C library's.
#ifdef P15_TEST_ASAN
extern "C" void __interceptor_free(void* block);
#define releaseBlock __interceptor_free
#else
extern "C" void __libc_free(void* block);
#define releaseBlock __libc_free
#endif

namespace {

const void* watchedBlock = nullptr;
std::size_t watchedSize = 0;
bool watchedBlockFreed = false;
bool watchedBlockWasZero = false;

void inspect(void* block) {
    const auto* bytes = static_cast<const unsigned char*>(block);
    watchedBlockWasZero =
        std::all_of(bytes, bytes + watchedSize, [](unsigned char b) { return b == 0; });
    watchedBlockFreed = true;
    watchedBlock = nullptr;
}

// Volatile stores, so that no store the test relies on is optimised away
// ahead of a free.
void fill(unsigned char* block, std::size_t size, unsigned char value) {
    volatile unsigned char* bytes = block;
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = value;
    }
}

// Fills the block with a pattern and watches it.
void watch(unsigned char* block, std::size_t size) {
    fill(block, size, 0xA5);
    watchedBlock = block;
    watchedSize = size;
    watchedBlockFreed = false;
    watchedBlockWasZero = false;
}

void watch(mw::ByteBuffer& buffer) {
    watch(buffer.data(), buffer.size());
}

::testing::AssertionResult releasedAsZeros() {
    if (!watchedBlockFreed) {
        return ::testing::AssertionFailure() << "the block was not freed";
    }
    if (!watchedBlockWasZero) {
        return ::testing::AssertionFailure() << "the block held data when it was freed";
    }
    return ::testing::AssertionSuccess();
}

mw::ByteBuffer pattern() {
    return mw::ByteBuffer(16);
}

} // namespace

// Not instrumented: the sanitizer's start-up frees memory through here
// before its shadow memory exists (no block is watched then).
extern "C" __attribute__((no_sanitize("address"))) __attribute__((no_sanitize("undefined"))) void
free(void* block) {
    if (block != nullptr && block == watchedBlock) {
        inspect(block);
    }
    releaseBlock(block);
}

TEST(BufferWipe, TheHookSeesUnwipedMemory) {
    // Guards the other tests: a block freed with its data must be noticed.
    auto* raw = static_cast<unsigned char*>(std::malloc(8));
    watch(raw, 8);
    std::free(raw);
    EXPECT_TRUE(watchedBlockFreed);
    EXPECT_FALSE(watchedBlockWasZero);
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
