#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>
#include <string>

using card::Apdu;
using mw::fromHex;

namespace {

// getCase() numbers ISO cases 1 to 4 from 0.
enum { isoCase1 = 0, isoCase2 = 1, isoCase3 = 2, isoCase4 = 3, malformed = -1 };

Apdu raw(const std::string& hex) {
    return Apdu(fromHex(hex));
}

} // namespace

TEST(Apdu, CaseLcDataAndLeFollowFromTheLengths) {
    const struct {
        const char* hex;
        int isoCase, lc;
        const char* data;
        int le;
    } cases[] = {
        {"00840000", isoCase1, -1, "", -1},
        {"00B0000000", isoCase2, -1, "", 0}, // five bytes are always case 2
        {"00A4020C 02 9999", isoCase3, 2, "9999", -1},
        {"00A40400 02 3F00 FF", isoCase4, 2, "3F00", 0xFF},
        {"00A40400 05 0102", malformed, -1, "", -1},
        {"00A40400 01 010203", malformed, -1, "", -1},
        {"00A40400 00 0102", malformed, -1, "", -1},
    };
    for (const auto& c : cases) {
        const Apdu command = raw(c.hex);
        EXPECT_EQ(command.getCase(), c.isoCase) << c.hex;
        EXPECT_EQ(command.getLc(), c.lc) << c.hex;
        EXPECT_EQ(command.getData(), fromHex(c.data)) << c.hex;
        EXPECT_EQ(command.getLe(), c.le) << c.hex;
    }
    EXPECT_EQ(mw::toHex(Apdu(0x00, 0xA4, 0x02, 0x0C, fromHex("9999")).bytes()), "00A4020C029999");
    EXPECT_EQ(mw::toHex(Apdu(0x00, 0x84, 0x00, 0x00).bytes()), "00840000");
    // The data constructor writes Lc even for no data, which reads as Le 0.
    const Apdu noData(0x00, 0xA4, 0x00, 0x00, mw::ByteBuffer());
    EXPECT_EQ(mw::toHex(noData.bytes()), "00A4000000");
    EXPECT_EQ(noData.getCase(), isoCase2);
    // Lc keeps only the low 8 bits of the length, so 256 data bytes do not
    // make a short APDU.
    EXPECT_EQ(Apdu(0x00, 0xD6, 0, 0, mw::ByteBuffer(256)).getCase(), malformed);
}

TEST(Apdu, FewerThanFourBytesFailWithTheBufferIndexError) {
    for (const char* hex : {"", "00", "00A404"}) {
        const Apdu command = raw(hex);
        try {
            command.getCase();
            FAIL() << "no mw::IndexException for " << hex;
        } catch (const mw::IndexException& e) {
            const std::string what = e.what();
            EXPECT_EQ(what.substr(what.size() - 14), "invalid index ") << what;
        }
        EXPECT_THROW(command.getLe(), mw::IndexException);
        EXPECT_THROW(command.getData(), mw::IndexException);
    }
}

TEST(Apdu, SetLeAppendsOrOverwrites) {
    Apdu command(0x00, 0xB0, 0x00, 0x00);
    command.setLe(0x10);
    EXPECT_EQ(mw::toHex(command.bytes()), "00B0000010");
    command.setLe(0x20);
    EXPECT_EQ(mw::toHex(command.bytes()), "00B0000020");

    Apdu select(0x00, 0xA4, 0x04, 0x00, fromHex("A000"));
    select.setLe(0x00);
    EXPECT_EQ(select.getCase(), isoCase4);
    EXPECT_EQ(mw::toHex(select.bytes()), "00A4040002A00000");
    select.setLe(0x7F);
    EXPECT_EQ(mw::toHex(select.bytes()), "00A4040002A0007F");
}

TEST(StatusWord, IsReadFromTheLastTwoBytes) {
    EXPECT_EQ(card::statusWord(fromHex("9000")), 0x9000);
    EXPECT_EQ(card::statusWord(fromHex("0102 6A82")), 0x6A82);
    for (const char* hex : {"", "90"}) {
        try {
            card::statusWord(fromHex(hex));
            FAIL() << "no exception for " << hex;
        } catch (const card::CardException& e) {
            EXPECT_STREQ(e.what(), "invalid data exception");
            ASSERT_NE(boost::get_error_info<card::ErrorText>(e), nullptr);
            EXPECT_STREQ(*boost::get_error_info<card::ErrorText>(e),
                         "response shorter than a status word");
        }
    }
}
