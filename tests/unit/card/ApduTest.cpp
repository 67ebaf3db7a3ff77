// Short APDUs as the host builds and reads them, status words and their texts.
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>
#include <string>

using card::Apdu;
using mw::fromHex;
using mw::toHex;

// getCase() numbers ISO cases 1 to 4 from 0, -1 for a malformed command.
TEST(Apdu, CaseLcDataAndLeFollowFromTheLengths) {
    // clang-format off
    const struct { const char* hex; int isoCase, lc; const char* data; int le; } cases[] = {
        {"00840000", 0, -1, "", -1},
        {"00B0000000", 1, -1, "", 0}, // five bytes are always case 2
        {"00A4020C 02 9999", 2, 2, "9999", -1},
        {"00A40400 02 3F00 FF", 3, 2, "3F00", 0xFF},
        {"00A40400 05 0102", -1, -1, "", -1},
        {"00A40400 01 010203", -1, -1, "", -1},
        {"00A40400 00 0102", -1, -1, "", -1},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hex);
        const Apdu command{fromHex(c.hex)};
        EXPECT_EQ(
            std::make_tuple(command.getCase(), command.getLc(), command.getData(), command.getLe()),
            std::make_tuple(c.isoCase, c.lc, fromHex(c.data), c.le));
    }
    // The data constructor writes Lc even for no data, which reads as Le 0.
    const Apdu noData(0x00, 0xA4, 0x00, 0x00, mw::ByteBuffer());
    EXPECT_EQ(toHex(noData.bytes()), "00A4000000");
    EXPECT_EQ(noData.getCase(), 1);
    // Lc keeps only the low 8 bits of the length: 256 data bytes are no short APDU.
    EXPECT_EQ(Apdu(0x00, 0xD6, 0, 0, mw::ByteBuffer(256)).getCase(), -1);
}

TEST(StatusWord, IsReadFromTheLastTwoBytesOfAtLeastTwo) {
    EXPECT_EQ(card::statusWord(fromHex("0102 6A82")), 0x6A82);
    for (const char* hex : {"", "90"}) {
        try {
            card::statusWord(fromHex(hex));
            FAIL() << "no exception for " << hex;
        } catch (const card::CardException& e) {
            EXPECT_STREQ(e.what(), "invalid data exception");
            const char* const* text = boost::get_error_info<card::ErrorText>(e);
            EXPECT_STREQ(text ? *text : "", "response shorter than a status word");
        }
    }
}
