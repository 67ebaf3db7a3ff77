// Transport rules (malformed APDUs, CLA/INS, chaining, GET RESPONSE, lengths, power, faults);
// VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER with their retry counters; the two profiles
// side by side, one command sequence and the answer each profile gives.

#include "CardTestSupport.hpp"
#include "FreeHook.hpp"

#include "vcard/CardImage.hpp"

namespace vcard::test {
namespace {

using Transport = CardTest;
using PinCommands = CardTest;

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

// VERIFY without data tells the status and costs no try; refusals of form cost none either.
// Blocking after the last try: PinCommands.APinBlocksAfterItsTriesAndThePukFreesIt (p15tool).
TEST_F(PinCommands, VerifyStatusAndRefusals) {
    EXPECT_EQ(sw(apdu(0, 0x20, 0, 1, hex("313233343536"))), 0x6700); // not padded
    EXPECT_EQ(sw(apdu(0, 0x20, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x20, 0xFF, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);
    EXPECT_EQ(verify(*card, 1, "123456"), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x9000);
    EXPECT_EQ(verify(*card, 1, "000000"), 0x63C2);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C2); // a wrong value also unverifies
    for (const char* unknown : {"00200009 08 3132333435363738", "00200009", "0020FF09"})
        EXPECT_EQ(sw(unknown), 0x6A88) << unknown;
}

// CHANGE REFERENCE DATA checks the old value (and verifies the PIN: the right old value gives
// the try back); RESET RETRY COUNTER gives the tries back and verifies the PUK, a blocked PUK
// blocks it, the SO PIN has none. A blocked PIN freed (p15tool):
// PinCommands.APinBlocksAfterItsTriesAndThePukFreesIt; new values at work (pkcs11):
// ModuleTest.WrongPinsShowInTheFlagsUntilThePukSetsANewOne and
// SetPinNeedsAReadWriteSessionAndTheOldValue.
TEST_F(PinCommands, ChangeAndResetRetryCounter) {
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(sw(apdu(0, 0x24, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("000000"), paddedPin("4321")))), 0x63C2);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("4321")))), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x9000);
    EXPECT_EQ(sw("0020FF01"), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);

    EXPECT_EQ(verify(*card, 1, "000000"), 0x63C2);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);
    EXPECT_EQ(pinStatus(*card, 2), 0x9000);                            // the PUK verified
    EXPECT_EQ(sw(apdu(0, 0x2C, 0, 1, paddedPin("12345678"))), 0x6700); // new value missing
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 3, paddedPin("12345678"))), 0x6985); // SO PIN: no PUK
    EXPECT_EQ(sw(apdu(0, 0x2C, 2, 1, paddedPin("12345678"))), 0x6A86);
    for (int i = 0; i < 5; ++i)
        sw(apdu(0, 0x2C, 1, 1, paddedPin("00000000")));
    EXPECT_EQ(pinStatus(*card, 2), 0x6983);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x6983);
}

// The PIN of VERIFY, the old value of CHANGE REFERENCE DATA and the PUK of RESET RETRY COUNTER
// are wiped before their memory is released, whether the value was right or wrong.
TEST_F(PinCommands, NoReleasedBlockHoldsAPinValueOfACommand) {
    const struct {
        const char* what;
        Bytes command;
        std::string secret;
    } rows[] = {
        {"VERIFY", apdu(0, 0x20, 0, 1, paddedPin("123456")), "123456\xFF\xFF"},
        {"wrong VERIFY", apdu(0, 0x20, 0, 1, paddedPin("654321")), "654321\xFF\xFF"},
        {"CHANGE, old", apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("2468"))),
         "123456\xFF\xFF"},
        {"wrong CHANGE, old", apdu(0, 0x24, 0, 1, concat(paddedPin("654321"), paddedPin("2468"))),
         "654321\xFF\xFF"},
        {"RESET, PUK", apdu(0, 0x2C, 1, 1, paddedPin("12345678")), "12345678"},
        {"wrong RESET, PUK", apdu(0, 0x2C, 1, 1, paddedPin("87654321")), "87654321"},
        {"RESET, PUK and new", apdu(0, 0x2C, 0, 1, concat(paddedPin("12345678"), paddedPin("97"))),
         "12345678"},
    };
    for (const auto& row : rows) {
        card = VirtualCard::personalised();
        freehook::lookFor(row.secret);
        send(row.command);
        const std::size_t holding = freehook::blocksFreedHoldingSecret();
        freehook::lookFor("");
        EXPECT_EQ(holding, 0u) << row.what;
    }
}

struct Step {
    std::string command;
    std::uint16_t nativeSw;
    std::size_t nativeLength;
    std::uint16_t isoSw;
    std::size_t isoLength;
};

const std::string wrongPin = "08 3030303030303030";

// On a card that went through its image, with the user PIN verified and key pair 81 generated.
TEST(Profiles, EachAnswersTheSameCommandsAsItsMakeDoes) {
    const std::vector<Step> steps = {
        {"00A40800 04 5015 5032 00", 0x9000, 35, 0x9000, 49}, // 85 and A5 added
        {"00CA01A0 00", 0x9000, 35, 0x6A81, 0},               // rsaEncryption, PSS, OAEP
        {"00840000 04", 0x9000, 4, 0x6C08, 0},
        {"00840000 10", 0x9000, 16, 0x9000, 8},
        {"00840000 000010", 0x9000, 16, 0x6700, 0}, // extended Le
        {"002241B6 03 840181", 0x9000, 0, 0x6A80, 0},
        {"002241B6 06 840181 800102", 0x6A80, 0, 0x9000, 0},
        {"002A9E9A 04 01020304 00", 0x9000, 128, 0x9000, 128},
        {"002241B6 06 840181 80010A", 0x6A80, 0, 0x6A80, 0},
        {"002241B6 06 840181 800123", 0x9000, 0, 0x6A80, 0}, // PSS, SHA-256
        {"002241B8 06 840181 800131", 0x9000, 0, 0x6A80, 0}, // OAEP, SHA-1
        {"002241B8 06 840181 80010A", 0x6A80, 0, 0x9000, 0},
        {"002241B8 06 840181 800101", 0x9000, 0, 0x6A80, 0},
        {"00200001", 0x9000, 0, 0x6A86, 0},
        {"00200003" + wrongPin, 0x63C2, 0, 0x6300, 0},
        {"00200003", 0x63C2, 0, 0x6A86, 0}, // costs no try
        {"00200003" + wrongPin, 0x63C1, 0, 0x6300, 0},
        {"00200003" + wrongPin, 0x63C0, 0, 0x6983, 0}, // the try that blocks it
        {"002C0101" + wrongPin, 0x63C4, 0, 0x6300, 0},
        {"00240001 10 3030303030303030 3030303030303030", 0x63C2, 0, 0x6300, 0},
    };
    for (CardProfile profile : {CardProfile::Native, CardProfile::Iso}) {
        SCOPED_TRACE(profileName(profile));
        const bool iso = profile == CardProfile::Iso;
        Personalisation options;
        options.profile = profile;
        VirtualCard card(CardImage::parse(CardImage::serialise(personalise(options)), "memory"));
        logIn(card);
        addKeyPair(card);
        EXPECT_EQ(card.atr()[7], iso ? 0x80 : 0xC0) << "extended Lc/Le in the capabilities";
        for (const Step& step : steps) {
            const Bytes answer = card.transmit(hex(step.command));
            EXPECT_EQ(statusWord(answer), iso ? step.isoSw : step.nativeSw) << step.command;
            EXPECT_EQ(answer.size() - 2, iso ? step.isoLength : step.nativeLength) << step.command;
            if (step.command.rfind("00A4", 0) == 0) {
                EXPECT_EQ(answer[2], iso ? 0x82 : 0x80) << "the FCP's first tag";
            }
        }
        // The iso card counts every wrong value as the native one does, and no status query.
        const auto& pins = card.state().pins.pins();
        EXPECT_EQ(pins.at(0x01).triesLeft, 2);
        EXPECT_EQ(pins.at(0x02).triesLeft, 4);
        EXPECT_EQ(pins.at(0x03).triesLeft, 0);
    }
}

} // namespace
} // namespace vcard::test
