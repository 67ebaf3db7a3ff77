// Every block a buffer hands back to the runtime is wiped first.
#include "FreeHook.hpp"
#include "mw/ByteBuffer.hpp"

#include <gtest/gtest.h>

using namespace freehook;

// Guards the other tests: a block freed with its data must be noticed.
TEST(BufferWipe, TheHookSeesUnwipedMemory) {
    auto* raw = static_cast<unsigned char*>(std::malloc(8));
    watch(raw, 8);
    std::free(raw);
    EXPECT_STREQ(releasedAsZeros().message(), "the block held data when it was freed");
}

TEST(BufferWipe, EveryOperationThatDropsABlockWipesItFirst) {
    // Each operation, and a byte of the old contents it must keep (-1: none).
    // clang-format off
    const struct { const char* what; void (*operation)(mw::ByteBuffer&); int kept; } operations[] = {
        {"destructor", [](mw::ByteBuffer& b) { const mw::ByteBuffer gone(std::move(b)); }, -1},
        {"clear", [](mw::ByteBuffer& b) { b.clear(); }, -1},
        {"copy assignment", [](mw::ByteBuffer& b) { b = mw::ByteBuffer(b.data(), 3); }, 2},
        {"move assignment", [](mw::ByteBuffer& b) { b = mw::ByteBuffer(2); }, -1},
        {"growing", [](mw::ByteBuffer& b) { b.resize(32); }, 15},
        {"shrinking", [](mw::ByteBuffer& b) { b.resize(4); }, 3},
        {"resize to 0", [](mw::ByteBuffer& b) { b.resize(0); }, -1},
        {"insert", [](mw::ByteBuffer& b) { b.insert(3, mw::ByteBuffer(2)); }, 17},
        {"append of itself", [](mw::ByteBuffer& b) { b.append(b); }, 31},
    };
    // clang-format on
    for (const auto& op : operations) {
        SCOPED_TRACE(op.what);
        mw::ByteBuffer buffer(16);
        watch(buffer);
        op.operation(buffer);
        EXPECT_TRUE(releasedAsZeros());
        if (op.kept >= 0) {
            EXPECT_EQ(buffer.get(op.kept), 0xA5);
        }
    }
}
