#ifndef TESTS_SUPPORT_FREEHOOK_HPP
#define TESTS_SUPPORT_FREEHOOK_HPP

// Looks at the blocks a binary hands back to the runtime: a binary that
// links FreeHook.cpp replaces free() with a forwarder that inspects one
// watched block just before it is really freed.

#include "mw/ByteBuffer.hpp"

#include <cstddef>
#include <gtest/gtest.h>
#include <string_view>

namespace freehook {

// Fills the block with a pattern and watches it.
void watch(unsigned char* block, std::size_t size);
void watch(mw::ByteBuffer& buffer);
// Whether the watched block was freed, and held only zeros then.
::testing::AssertionResult releasedAsZeros();

// Counts the blocks freed from now on that still hold `secret` (up to 64
// bytes) anywhere in them; an empty secret stops the search.
void lookFor(std::string_view secret);
std::size_t blocksFreedHoldingSecret();

} // namespace freehook

#endif
