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

TEST(Apdu, StatusFileSelectIsCase3WithItsData) {
    const Apdu select(0x00, 0xA4, 0x02, 0x0C, mw::ByteBuffer{0x99, 0x99});
    EXPECT_EQ(mw::toHex(select.bytes()), "00A4020C029999");
    EXPECT_EQ(select.getCase(), isoCase3);
    EXPECT_EQ(select.getLc(), 2);
    EXPECT_EQ(select.getData(), (mw::ByteBuffer{0x99, 0x99}));
    EXPECT_EQ(select.getLe(), -1);
}

TEST(Apdu, HeaderOnlyIsCase1) {
    const Apdu command(0x00, 0x84, 0x00, 0x00);
    EXPECT_EQ(mw::toHex(command.bytes()), "00840000");
    EXPECT_EQ(command.getCase(), isoCase1);
    EXPECT_EQ(command.getLc(), -1);
    EXPECT_TRUE(command.getData().empty());
    EXPECT_EQ(command.getLe(), -1);
}

TEST(Apdu, FiveBytesAreAlwaysCase2) {
    const Apdu zeroFifth = raw("00B0000000");
    EXPECT_EQ(zeroFifth.getCase(), isoCase2);
    EXPECT_EQ(zeroFifth.getLe(), 0);
    EXPECT_EQ(zeroFifth.getLc(), -1);
    EXPECT_TRUE(zeroFifth.getData().empty());

    // The data constructor writes Lc even for no data, which reads as Le 0.
    const Apdu noData(0x00, 0xA4, 0x00, 0x00, mw::ByteBuffer());
    EXPECT_EQ(mw::toHex(noData.bytes()), "00A4000000");
    EXPECT_EQ(noData.getCase(), isoCase2);
}

TEST(Apdu, LcAndLeTogetherAreCase4) {
    const Apdu command = raw("00A4040002 3F00 FF");
    EXPECT_EQ(command.getCase(), isoCase4);
    EXPECT_EQ(command.getLc(), 2);
    EXPECT_EQ(command.getData(), fromHex("3F00"));
    EXPECT_EQ(command.getLe(), 0xFF);
}

TEST(Apdu, LengthsThatMatchNoCaseAreMalformed) {
    for (const char* hex : {"00A4040005 0102", "00A4040001 010203", "00A4040000 0102"}) {
        const Apdu command = raw(hex);
        EXPECT_EQ(command.getCase(), malformed) << hex;
        EXPECT_EQ(command.getLc(), -1) << hex;
        EXPECT_EQ(command.getLe(), -1) << hex;
        EXPECT_TRUE(command.getData().empty()) << hex;
    }
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
