#include "mw/Hex.hpp"

#include <gtest/gtest.h>

TEST(Hex, WritesUpperCaseAndReadsEitherCaseWithBlanks) {
    const mw::ByteBuffer bytes{0x00, 0xA4, 0x0c, 0xFF};
    EXPECT_EQ(mw::toHex(bytes), "00A40CFF");
    EXPECT_EQ(mw::fromHex("00a4 0C\tff"), bytes);
    EXPECT_EQ(mw::toHex(mw::ByteBuffer()), "");
    EXPECT_TRUE(mw::fromHex(" ").empty());
}

TEST(Hex, RejectsOddLengthsAndNonDigits) {
    EXPECT_THROW(mw::fromHex("ABC"), mw::IllegalArgumentException);
    EXPECT_THROW(mw::fromHex("0G"), mw::IllegalArgumentException);
    EXPECT_THROW(mw::fromHex("0x12"), mw::IllegalArgumentException);
}
