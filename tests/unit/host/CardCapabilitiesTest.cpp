// Only an ATR that plainly announces extended length gets extended APDUs.
#include "host/iso7816/CardCapabilities.hpp"
#include "mw/Hex.hpp"

#include <gtest/gtest.h>

namespace {

using host::iso7816::CardCapabilities;

bool extended(const char* atrHex) {
    return CardCapabilities::fromAtr(mw::fromHex(atrHex)).extendedLength;
}

TEST(CardCapabilitiesTest, ExtendedLengthOnlyWhereTheHistoricalBytesSaySo) {
    // Category 80, card capabilities 73 with b7 of the third byte, after TA1 TD1 TD2.
    EXPECT_TRUE(extended("3B 95 18 81 01 80 73 00 00 40 00"));
    EXPECT_FALSE(extended("3B 95 18 81 01 80 73 00 00 80 00")) << "chaining only";
    // Category 00: the last three bytes are a status indicator, not TLVs.
    EXPECT_TRUE(extended("3B 88 00 00 73 00 00 40 00 90 00"));
    EXPECT_FALSE(extended("3B 87 00 00 73 00 00 40 90 00")) << "status bytes read as a TLV";
    EXPECT_FALSE(extended("3B 86 01 70 31 35 6B 69 74 85")) << "proprietary category";
    // Broken ATRs announce nothing.
    EXPECT_FALSE(extended(""));
    EXPECT_FALSE(extended("3B"));
    EXPECT_FALSE(extended("3B 81 80")) << "a TD that is not there";
    EXPECT_FALSE(extended("3B 05 80 73 00 00")) << "historical bytes cut short";
    EXPECT_FALSE(extended("3B 05 80 7F 00 00 40")) << "a TLV running past the end";
}

} // namespace
