// Every block a buffer hands back to the runtime is wiped first.
#include "FreeHook.hpp"
#include "mw/ByteBuffer.hpp"

#include <algorithm>
#include <functional>
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

TEST(BufferWipe, EveryOperationThatDropsABlockWipesItFirst) {
    {
        mw::ByteBuffer buffer = pattern();
        watch(buffer);
    }
    EXPECT_TRUE(releasedAsZeros()) << "destructor";

    const mw::ByteBuffer source{1, 2, 3};
    const struct {
        const char* what;
        std::function<void(mw::ByteBuffer&)> operation;
    } operations[] = {
        {"clear", [](mw::ByteBuffer& b) { b.clear(); }},
        {"copy assignment", [&](mw::ByteBuffer& b) { b = source; }},
        {"move assignment", [](mw::ByteBuffer& b) { b = mw::ByteBuffer{4, 5}; }},
        {"growing", [](mw::ByteBuffer& b) { b.resize(32); EXPECT_EQ(b.get(15), 0xA5); }},
        {"shrinking", [](mw::ByteBuffer& b) { b.resize(4); EXPECT_EQ(b.get(3), 0xA5); }},
        {"resize to 0", [](mw::ByteBuffer& b) { b.resize(0); }},
        {"insert", [](mw::ByteBuffer& b) { b.insert(3, mw::ByteBuffer{1, 2}); }},
        {"append of itself", [](mw::ByteBuffer& b) { b.append(b); EXPECT_EQ(b.size(), 32u); }},
    };
    for (const auto& op : operations) {
        SCOPED_TRACE(op.what);
        mw::ByteBuffer buffer = pattern();
        watch(buffer);
        op.operation(buffer);
        EXPECT_TRUE(releasedAsZeros());
    }
}
