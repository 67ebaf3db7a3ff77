#include "card/CardException.hpp"

#include <gtest/gtest.h>

// A few rows, with the table's own capitalisation, from both ends and the
// middle: the table is looked up by exact value.
TEST(StatusText, ListedStatusWordsHaveTheirText) {
    EXPECT_STREQ(card::statusText(0x6281), "part of returned data may be corrupted");
    EXPECT_STREQ(card::statusText(0x6700), "Wrong Length");
    EXPECT_STREQ(card::statusText(0x6A82), "File or application not found");
    EXPECT_STREQ(card::statusText(0x6A86), "Incorrect parameters P1-P2");
    EXPECT_STREQ(card::statusText(0x6B00), "Wrong Parameters P1-P2");
    EXPECT_STREQ(card::statusText(0x6F00), "No precise diagnosis");
}

// Families (61xx, 63Cx, 6Cxx), success, neighbours of listed words and the
// ends of the range have no text of their own.
TEST(StatusText, OnlyExactValuesMap) {
    for (unsigned short sw : {0x6A8B, 0x6A8F, 0x9000, 0x6100, 0x61FF, 0x63C2, 0x6C10, 0x6280,
                              0x6A00, 0x6F01, 0x0000, 0xFFFF}) {
        EXPECT_STREQ(card::statusText(sw), "unknown error") << std::hex << sw;
    }
}
