#include "mw/Hex.hpp"

#include <gtest/gtest.h>

TEST(Hex, ReadsEitherCaseWithBlanksAndRejectsOddLengthsAndNonDigits) {
    const mw::ByteBuffer bytes{0x00, 0xA4, 0x0c, 0xFF};
    EXPECT_EQ(mw::toHex(bytes), "00A40CFF");
    EXPECT_EQ(mw::fromHex("00a4 0C\tff"), bytes);
    EXPECT_TRUE(mw::fromHex(" ").empty());
    for (const char* bad : {"ABC", "0G", "0x12"}) {
        EXPECT_THROW(mw::fromHex(bad), mw::IllegalArgumentException) << bad;
    }
}
