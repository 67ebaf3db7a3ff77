// Transport rules: malformed APDUs, CLA/INS, chaining, GET RESPONSE, lengths, power, faults.

#include "CardTestSupport.hpp"

namespace vcard::test {
namespace {

using Transport = CardTest;

// Malformed commands get a status word and leave the card working; random commands are the
// vcard_apdu fuzz target's.
TEST_F(Transport, MalformedCommandsGetAStatusWord) {
    const std::pair<const char*, std::uint16_t> rows[] = {
        {"", 0x6700},
        {"00A4", 0x6700},
        {"00A404", 0x6700},
        {"00D60000 05 0102", 0x6700},         // Lc says 5, 2 follow
        {"00D60000 02 010203 00 11", 0x6700}, // trailing bytes after Le
        {"00A40000 00 3F", 0x6700},           // short Lc 0 with data
        {"00D60000 00 0002 01", 0x6700},      // extended Lc says 2, 1 follows
        {"80A40000", 0x6E00},
        {"0CA40000", 0x6E00},
        {"00FF0000", 0x6D00},
        {"00B3000000", 0x6D00},
    };
    for (const auto& [command, status] : rows)
        EXPECT_EQ(sw(command), status) << command;
    selectApplication();
}

// A chain broken by another command is refused and dropped; one beyond 64 KiB is refused.
TEST_F(Transport, ChainsAreBoundedAndNotInterleaved) {
    selectApplication();
    EXPECT_EQ(sw(apdu(0x10, 0xD6, 0x00, 0x00, Bytes(10, 1))), 0x9000);
    EXPECT_EQ(sw(apdu(0x00, 0xD6, 0x00, 0x01, Bytes(10, 1))), 0x6883);
    EXPECT_EQ(sw("00A40204 02 5031"), 0x9000); // the chain is gone
    for (int i = 0; i < 257; ++i)
        ASSERT_EQ(sw(apdu(0x10, 0xD6, 0, 0, Bytes(255, 0))), 0x9000);
    EXPECT_EQ(sw(apdu(0x10, 0xD6, 0, 0, Bytes(255, 0))), 0x6700);
}

// An answer longer than Le coming in pieces through GET RESPONSE:
// InProcessCardTest.LongAnswersAndChainedCryptogramsOf2048BitKeys (short APDUs).
TEST_F(Transport, GetResponseWithWrongLeGets6CxxAndKeepsTheData) {
    Bytes partial = send("00A40404 0C A000000063504B43532D3135 04");
    ASSERT_EQ(statusWord(partial) & 0xFF00, 0x6100);
    const std::uint8_t waiting = statusWord(partial) & 0xFF;
    EXPECT_EQ(sw(apdu(0, 0xC0, 0, 0, {}, waiting + 1)), 0x6C00 | waiting);
    EXPECT_EQ(sw("00C0000000"), 0x6C00 | waiting);
    Bytes smaller = send(apdu(0, 0xC0, 0, 0, {}, 2));
    EXPECT_EQ(statusWord(smaller), 0x6100 | (waiting - 2));
    EXPECT_EQ(sw(apdu(0, 0xC0, 0, 0, {}, waiting - 2)), 0x9000);
    EXPECT_EQ(sw("00C0000002"), 0x6985); // nothing waits any more
    EXPECT_EQ(sw("00C0010002"), 0x6A86);
    // Any other command drops waiting data.
    ASSERT_EQ(statusWord(send("00A40404 0C A000000063504B43532D3135 04")) & 0xFF00, 0x6100);
    ASSERT_EQ(sw("00CA01A000"), 0x9000);
    EXPECT_EQ(sw("00C0000004"), 0x6985);
}

// Power-off silences the card until a reset; a card without extended lengths refuses them.
TEST_F(Transport, PowerAndExtendedLengths) {
    card->powerOff();
    EXPECT_FALSE(card->isPoweredOn());
    EXPECT_THROW(send("00A4000C"), CardRemoved);
    card->reset();
    EXPECT_EQ(sw("00A4000C"), 0x9000);
    card->setExtendedLength(false); // its ATR: the InProcessShort suites of the host
    EXPECT_EQ(sw("00B0000000 0100"), 0x6700) << "extended Le";
    EXPECT_EQ(sw("00A40800 000002 5015"), 0x6700) << "extended Lc";
    EXPECT_EQ(sw("00A40800 02 5015"), 0x9000);
}

// Counters count both ways; an injected fault hits exactly the Nth command (of one INS).
TEST_F(Transport, InstrumentationCountsAndHitsExactlyTheNthCommand) {
    auto& instrumentation = card->instrumentation();
    instrumentation.resetCounters();
    send("00A4000C");   // 4 in, 2 out
    send("0084000008"); // 5 in, 10 out
    const auto& counters = instrumentation.counters();
    EXPECT_EQ((std::vector<std::uint64_t>{counters.commands, counters.responses, counters.bytesIn,
                                          counters.bytesOut}),
              (std::vector<std::uint64_t>{2, 2, 9, 12}));
    instrumentation.injectFault(2, Instrumentation::Fault::StatusWord);
    EXPECT_EQ(sw("00A4000C"), 0x9000);
    EXPECT_EQ(sw("00A4000C"), 0x6F00);
    EXPECT_EQ(sw("00A4000C"), 0x9000);

    // Aimed at one instruction: the SELECTs in between neither count nor get it.
    instrumentation.injectStatusWord(0x84, 0x6C08, 2);
    EXPECT_EQ(sw("0084000008"), 0x9000);
    EXPECT_EQ(sw("00A4000C"), 0x9000);
    EXPECT_EQ(sw("0084000008"), 0x6C08);
    EXPECT_EQ(sw("0084000008"), 0x9000);

    instrumentation.injectFault(1, Instrumentation::Fault::CardRemoved);
    EXPECT_THROW(send("00A4000C"), CardRemoved);
    EXPECT_FALSE(card->isPoweredOn());
}

TEST_F(Transport, TornWriteAppliesOnlyPartOfTheUpdate) {
    logIn();
    ASSERT_EQ(sw("00A40200 02 4407"), 0x9000);
    card->instrumentation().injectFault(1, Instrumentation::Fault::TornWrite, 3);
    EXPECT_THROW(send(apdu(0, 0xD6, 0, 0, Bytes(8, 0xAB))), CardRemoved);
    card->reset();
    selectApplication();
    ASSERT_EQ(sw("00A40200 02 4407"), 0x9000);
    EXPECT_EQ(dataOf(send("00B0000008")), hex("ABABAB0000000000"));
}

} // namespace
} // namespace vcard::test
