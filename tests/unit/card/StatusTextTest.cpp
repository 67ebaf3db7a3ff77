#include "card/CardException.hpp"

#include <gtest/gtest.h>

// Families (61xx, 63Cx, 6Cxx), success, neighbours of listed words and the
// ends of the range have no text of their own (a listed word's text is pinned
// where exceptions show it).
TEST(StatusText, OnlyExactValuesMap) {
    for (unsigned short sw : {0x6A8B, 0x6A8F, 0x9000, 0x6100, 0x61FF, 0x63C2, 0x6C10, 0x6280,
                              0x6A00, 0x6F01, 0x0000, 0xFFFF}) {
        EXPECT_STREQ(card::statusText(sw), "unknown error") << std::hex << sw;
    }
}
