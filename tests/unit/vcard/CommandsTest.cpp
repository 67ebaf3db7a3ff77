// The virtual card's commands: transport rules (malformed APDUs, CLA/INS, chaining, GET RESPONSE,
// lengths, power); VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER with their retry counters;
// the two profiles side by side; SELECT, READ/UPDATE BINARY, CREATE/DELETE FILE, access conditions
// and the card's limits; key files, key generation and import, security environment, signing,
// deciphering, random; the personalised card's EF(DIR) and serial, the options and PINs
// personalisation takes.

#include "CardTestSupport.hpp"
#include "FreeHook.hpp"

#include "vcard/CardImage.hpp"
#include "vcard/Tlv.hpp"

#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>
#include <cryptopp/oaep.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <cstdio>
#include <fstream>
#include <numeric>

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

// On a card that went through its image, with the user PIN verified and key pair 81 generated.
// How each profile answers VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER and counts their
// tries, through the whole stack: PinCommands (p15tool) and ProfiledModuleTest (pkcs11), each over
// both profiles.
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
    }
}

struct Row {
    std::string apdu;
    std::uint16_t sw;
};

class FileCommands : public CardTest {
protected:
    void expectAnswers(const std::vector<Row>& rows) {
        for (const Row& row : rows)
            EXPECT_EQ(sw(row.apdu), row.sw) << row.apdu;
    }
    /// CREATE FILE of a transparent EF with the given security attributes.
    std::uint16_t createEf(const std::string& fid, const std::string& size,
                           const std::string& security) {
        return sw(createFile("8002" + size + "820101 8302" + fid, security));
    }
    /// The card as its image would load it again.
    void reloadThroughImage() {
        card = std::make_unique<VirtualCard>(
            CardImage::parse(CardImage::serialise(card->state()), "memory"));
    }
};

// Every SELECT method reaches its file and answers an FCP naming it (tag 83); by AID and by path
// from the MF without 3F00: every host suite.
TEST_F(FileCommands, SelectByEveryMethodAnswersTheFcp) {
    const std::pair<const char*, const char*> selections[] = {
        {"00A40800 06 3F00 5015 4400 00", "4400"},
        {"00A40000 02 3F00 00", "3F00"},
        {"00A40100 02 5015 00", "5015"},
        {"00A40900 02 DF02 00", "DF02"},
        {"00A40000 02 5015 00", "5015"}, // parent by FID
        {"00A40000 00", "3F00"},         // P1 00 without data: the MF
    };
    for (const auto& [select, fid] : selections) {
        const Bytes answer = send(select);
        ASSERT_EQ(statusWord(answer), 0x9000) << select;
        const std::vector<Tlv> outer = parseTlvs(dataOf(answer));
        ASSERT_EQ(outer.at(0).tag, 0x62) << select;
        EXPECT_EQ(*findTlv(parseTlvs(outer[0].value), 0x83), hex(fid)) << select;
    }
}

// Refusals of SELECT, READ and UPDATE BINARY that the card layer never provokes; a refused
// SELECT keeps the current file. Reading and writing up to the last byte and one past:
// FileServicesTest (host), through the whole stack.
TEST_F(FileCommands, RefusalsOfSelectReadAndUpdateBinary) {
    expectAnswers({
        {"00A40000 02 5031", 0x6A82},       // not a child of the MF
        {"00A40100 02 2F00", 0x6A82},       // P1 01 wants a DF
        {"00A40200 02 5015", 0x6A82},       // P1 02 wants an EF
        {"00A40400 05 A000000063", 0x6A82}, // names match exactly
        {"00A40800 04 2F00 5031", 0x6A82},  // EF in the middle of a path
        {"00A40800 03 5015 44", 0x6A80},    // odd path
        {"00A4080000", 0x6700},             // no path
        {"00A40300 02 5015", 0x6A86},
        {"00A40002 02 5015", 0x6A86},
        {"00A40000 03 501500", 0x6A80},
        {selectPkcs15, 0x9000},
        {"00A4020C 02 5031", 0x9000},
        {"00A4020C 02 7777", 0x6A82},
        {"00B0000001", 0x9000}, // the ODF is still current
        {"00B0800001", 0x6A86}, // P1 bit 8: no short EF identifiers
        {"00B00000", 0x6700},   // no Le
        {"00D6800002 3001", 0x6A86},
        {"00D60000", 0x6700},
        {"00A4020C 02 9999", 0x9000}, // 8 bytes, never updatable
        {"00D60000 01 01", 0x6982},
        {"00A4000C 02 DF02", 0x9000},
        {"00B0000001", 0x6986}, // a DF is current
    });
    ASSERT_EQ(sw("00A4000C 02 5015"), 0x9000);
    ASSERT_EQ(sw("00A4020C 02 9999"), 0x9000);
    EXPECT_EQ(send("00B0000703"), hex("00 6282")); // what there is, and the warning
    verifyUserPin();
    ASSERT_EQ(sw("00A4020C 02 4408"), 0x9000); // AODF: the user PIN or the SO PIN
    EXPECT_EQ(sw("00D603FF 01 00"), 0x9000);
}

// B1 and D7 carry the offset in object 54; B1's answer is object 53, which Ne counts whole.
TEST_F(FileCommands, OddInsReadAndUpdateBinary) {
    selectApplication();
    ASSERT_EQ(sw("00A4020C 02 9999"), 0x9000); // 8 bytes of 00
    EXPECT_EQ(send("00B10000 04 54020000 05"), hex("5303 000000 9000"));
    EXPECT_EQ(send("00B10000 03 540106 05"), hex("5302 0000 6282"));
    EXPECT_EQ(send("00B10000 05 5403000007 00"), hex("5301 00 6282")); // any offset length
    expectAnswers({
        {"00B10000 03 540108 05", 0x6B00},
        {"00B10000 05 5403010000 05", 0x6B00},
        {"00B10000 02 5400 05", 0x6A80},
        {"00B10000 04 53020000 05", 0x6A80},
        {"00B10000 06 54020000 5300 05", 0x6A80},
        {"00B10000 03 540200 05", 0x6A80},
        {"00B10000 05", 0x6700},
        {"00B10000 04 54020000", 0x6700},
        {"00B10000 04 54020000 01", 0x6700},
        {"00B10001 04 54020000 05", 0x6A86},
        {"00D70000 04 54020000", 0x6A80},
        {"00D70000 07 54020000 7301AB", 0x6A80},
        {"00D70000 06 54020000 5300", 0x6700},
        {"00D70100 07 54020000 5301AB", 0x6A86},
    });
}

// The largest EF (FFFF bytes; FFFF+1 needs a three-byte size, refused) is written up to its
// last byte, survives the image and answers Ne at the edges of 53's length forms.
TEST_F(FileCommands, TheLargestFileThroughTheImage) {
    logIn();
    ASSERT_EQ(sw("00A4000C 02 DF02"), 0x9000);
    EXPECT_EQ(sw("00E00000 0E 620C 8003010000 820101 8302C0FE"), 0x6A80);
    ASSERT_EQ(createEf("C0FF", "FFFF", "A0029000 A1029000"), 0x9000);
    EXPECT_EQ(sw("00D70000 08 5402FFFE 5302 ABCD"), 0x6A84);
    EXPECT_EQ(sw("00D70000 07 5402FFFE 5301 AB"), 0x9000);
    reloadThroughImage();
    ASSERT_EQ(sw("00A40800 06 5015 DF02 C0FF"), 0x9000);
    EXPECT_EQ(send("00B10000 04 5402FFFE 03"), hex("5301 AB 9000"));
    EXPECT_EQ(sw("00B10000 04 5402FFFF 00"), 0x6B00);
    const std::tuple<const char*, const char*, std::size_t> answers[] = {{"0082", "537F", 127},
                                                                         {"0083", "538180", 128},
                                                                         {"0103", "5381FF", 255},
                                                                         {"0104", "53820100", 256}};
    for (const auto& [ne, header, bytes] : answers) {
        SCOPED_TRACE(ne);
        const Bytes answer = send(std::string("00B10000 000004 54028000") + ne);
        EXPECT_EQ(statusWord(answer), 0x9000);
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + hex(header).size()), hex(header));
        EXPECT_EQ(answer.size(), hex(header).size() + bytes + 2);
    }
}

// Every refused CREATE or DELETE FILE leaves the card as it was, a nested length that runs one
// byte past its template included. Created files' conditions at work: FileServicesTest (host).
TEST_F(FileCommands, RefusedCreateAndDeleteLeaveTheCardAsItWas) {
    selectApplication();
    ASSERT_EQ(sw("00A4000C 02 DF02"), 0x9000);
    EXPECT_EQ(createEf("C001", "0020", "A0029000"), 0x6982); // DF02 needs the user PIN
    verifyUserPin();
    ASSERT_EQ(createEf("C001", "0020", "A0029000"), 0x9000);
    Bytes deep = hex("880101"); // a nested condition deeper than the card accepts
    for (int i = 0; i < 9; ++i)
        deep = concat({0xA7, static_cast<std::uint8_t>(deep.size())}, deep);
    const std::string before = CardImage::serialise(card->state());
    EXPECT_EQ(createEf("C001", "0020", "A0029000"), 0x6A89); // the new EF is current: same DF
    expectAnswers({
        {"00E40000 02 C002", 0x6A82},
        {"00A4000C 02 5015", 0x9000},
        {"00E00000 08 6206 820101 830244", 0x6A80},                  // truncated TLV
        {"00E00000 10 620E 820138 830255AC 8406A000000063", 0x6A80}, // name overruns the FCP
        {"00E00000 10 620F 820138 830255AC 8405A000000063", 0x6A80}, // FCP overruns the data
        {"00E00000 09 6207 820101 83025555", 0x6A80},                // no size
        {"00E00000 0D 620B 80020010 820107 83025555", 0x6A80},       // unknown descriptor
        {"00E00000 0D 620B 80020010 820101 83023FFF", 0x6A80},       // reserved FID
        {"00E00000 0D 620B 80020200 820111 83020E01", 0x6A80},       // 512-bit key file
        {"00E00000 0D 620B 80020010 820101 83024400", 0x6A89},       // exists
        {"00E0010000", 0x6A86},
        {toHex(createFile("80020010 820101 83025556",
                          "A0" + toHex({std::uint8_t(deep.size())}) + toHex(deep))),
         0x6A80},
        {"00E40000 02 5031", 0x6982}, // the ODF's delete condition is never
        {"00E40100", 0x6A86},
        {"00A4000C 00", 0x9000},
        {"00E40000", 0x6985},         // the MF
        {"00E40000 02 5015", 0x6985}, // a DF that is not empty
    });
    EXPECT_EQ(CardImage::serialise(card->state()), before);
    EXPECT_EQ(sw("00A4000C 02 5015"), 0x9000);
    EXPECT_EQ(sw("00E00000 10 620E 820138 830255AA 8405A000000063"), 0x9000);
    ASSERT_EQ(sw("00A40000 02 5015"), 0x9000);
    EXPECT_EQ(sw("00E00000 10 620E 820138 830255AB 8405A000000063"), 0x6A8A); // name in use
}

std::size_t filesIn(const CardFile& root) {
    std::size_t count = 1;
    for (const auto& child : root.children)
        count += filesIn(*child);
    return count;
}

// The card refuses with 6A84 where the image loader's limits lie, and what it built still loads:
// DFs down to depth 16, 4096 files of any size (the MF included), 256 key files; memory runs out
// before either.
TEST_F(FileCommands, CardLimitsAreTheImageLoadersAndWhatTheCardBuiltLoads) {
    /// On a fresh card, creates files of these FCP tags in DF02 (at depth 2, open to the user PIN),
    /// or each in the last when nested, until the card refuses; how many it took.
    const auto untilFull = [this](const std::string& tags, bool nested = false) {
        card = VirtualCard::personalised();
        logIn();
        std::size_t created = 0;
        for (std::uint16_t status = 0x9000;; ++created) {
            if (!nested || created == 0) {
                EXPECT_EQ(sw("00A4000C 02 DF02"), 0x9000);
            }
            status = sw(createFile(tags + " 8302" + hex16(0xC000 + created),
                                   nested ? "A103880101" : "A0029000"));
            if (status != 0x9000) {
                EXPECT_EQ(status, 0x6A84);
                break;
            }
        }
        EXPECT_NO_THROW(CardImage::parse(CardImage::serialise(card->state()), "the built card"));
        return created;
    };
    EXPECT_EQ(untilFull("820138", true), 14u);
    EXPECT_EQ(sw(createFile("80020001 820101 8302E001", "A0029000")), 0x6A84); // nor an EF
    EXPECT_EQ(untilFull("80020000 820101") +
                  filesIn(VirtualCard::personalised()->state().files.mf()),
              4096u);
    EXPECT_EQ(untilFull("80020400 820111"), 256u);
    EXPECT_LT(untilFull("80027FFF 820101"), 100u);
}

using CryptoPP::Integer;

Integer integerOf(const Bytes& bytes) {
    return Integer(bytes.data(), bytes.size());
}

Bytes bytesOf(const Integer& value, std::size_t size = 0) {
    Bytes out(size ? size : value.MinEncodedSize());
    value.Encode(out.data(), out.size());
    return out;
}

class KeyCommands : public CardTest {
protected:
    void SetUp() override { logIn(); }

    static std::pair<Integer, Integer> publicKeyOf(const Bytes& answer) {
        std::vector<Tlv> outer = parseTlvs(answer);
        EXPECT_EQ(outer.at(0).tag, 0x7F49);
        std::vector<Tlv> parts = parseTlvs(outer.at(0).value);
        return {integerOf(*findTlv(parts, 0x81)), integerOf(*findTlv(parts, 0x82))};
    }

    /// Key files of kid and a key pair generated in them; its public key.
    CryptoPP::RSA::PublicKey newKey(std::uint8_t kid, unsigned bits) {
        sendAll(*card, keyFileCommands(kid, bits));
        const Bytes answer =
            send(apdu(0, 0x46, 0, static_cast<std::uint8_t>(0x80 | kid),
                      {0x80, 0x02, static_cast<std::uint8_t>(bits >> 8), std::uint8_t(bits)}, 0));
        EXPECT_EQ(statusWord(answer), 0x9000);
        const auto [n, e] = publicKeyOf(dataOf(answer));
        CryptoPP::RSA::PublicKey key;
        key.Initialize(n, e);
        return key;
    }

    std::uint16_t setEnvironment(std::uint8_t p2, std::uint8_t reference,
                                 std::uint8_t algorithm = 0x01) {
        return sw(apdu(0, 0x22, 0x41, p2, {0x84, 0x01, reference, 0x80, 0x01, algorithm}));
    }
};

/// The PKCS#1 v1.5 type 1 block that a signature must open to.
Bytes type1Block(const Bytes& data, std::size_t k) {
    Bytes block(k, 0xFF);
    block[0] = 0x00;
    block[1] = 0x01;
    block[k - data.size() - 1] = 0x00;
    std::copy(data.begin(), data.end(), block.end() - data.size());
    return block;
}

// A key signs at most eleven bytes less than its modulus, after the user PIN and with an
// environment that a reset clears; deciphering takes off type 2 padding and nothing else.
// Signatures that open to the type 1 block: EveryAlgorithm.TheCardSignsAndTheSoftwareVerifies.
TEST_F(KeyCommands, SigningAndDecipheringNeedAnEnvironmentAndTheirPadding) {
    const CryptoPP::RSA::PublicKey publicKey = newKey(0x01, 1024);
    const Integer &n = publicKey.GetModulus(), &e = publicKey.GetPublicExponent();
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(20, 1), 0)), 0x6985); // no environment
    ASSERT_EQ(setEnvironment(0xB6, 0x81), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(117, 1), 0)), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(118, 1), 0)), 0x6A80);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9B, Bytes(20, 1), 0)), 0x6A86);

    CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(publicKey);
    CryptoPP::AutoSeededRandomPool rng;
    const Bytes secret = hex("000102030405060708090A0B0C0D0E0F1011121314151617");
    Bytes cryptogram(encryptor.CiphertextLength(secret.size()));
    encryptor.Encrypt(rng, secret.data(), secret.size(), cryptogram.data());
    ASSERT_EQ(setEnvironment(0xB8, 0x81), 0x9000);
    EXPECT_EQ(send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, cryptogram), 0)),
              concat(secret, hex("9000")));
    // A type 1 block (what a signature opens to) is not type 2 padding.
    const Bytes notType2 = bytesOf(a_exp_b_mod_c(integerOf(type1Block(secret, 128)), e, n), 128);
    for (const Bytes& refused : {concat({0x00}, notType2), concat({0x01}, cryptogram),
                                 concat({0x00}, Bytes(cryptogram.begin() + 1, cryptogram.end())),
                                 concat({0x00}, bytesOf(n, 128))})
        EXPECT_EQ(sw(apdu(0, 0x2A, 0x80, 0x86, refused, 0)), 0x6A80);

    card->reset();
    logIn();
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(20, 1), 0)), 0x6985);
}

// Answers the card layer reads (the algorithm list, random bytes of any length): ProfileTest.
TEST_F(KeyCommands, RefusalsOfGenerationEnvironmentChallengeAndData) {
    EXPECT_EQ(sw("00840000"), 0x6700);
    EXPECT_EQ(sw("0084010008"), 0x6A86);
    EXPECT_EQ(sw("00CA01A100"), 0x6A88);
    sendAll(*card, keyFileCommands(0x04, 1024));
    EXPECT_EQ(sw("00460085 04 80020400 00"), 0x6A88); // key files of kid 05 missing
    EXPECT_EQ(sw("00460084 04 80020800 00"), 0x6A80); // 2048 bits into 1024-bit files
    EXPECT_EQ(sw("00460004 04 80020400 00"), 0x6A88); // not a key reference (bit 8 clear)
    EXPECT_EQ(sw("0046008400"), 0x6700);
    EXPECT_EQ(sw("0046028400"), 0x6A86);
    EXPECT_EQ(sw("0046018400"), 0x6985); // no key generated yet
    EXPECT_EQ(setEnvironment(0xB6, 0x85), 0x6A88);
    EXPECT_EQ(sw("002241B6 06 840184 800102"), 0x6A80); // unknown algorithm reference
    EXPECT_EQ(sw("002241B6 03 800101"), 0x6A80);        // no key reference
    EXPECT_EQ(sw("002281B6 03 840184"), 0x6A86);
    EXPECT_EQ(sw("002241A4 03 840184"), 0x6A86);
    ASSERT_EQ(sw("0020FF01"), 0x9000);
    EXPECT_EQ(sw("00460084 04 80020400 00"), 0x6982); // generation needs the update condition
    verifyUserPin();
    const std::vector<Bytes> files = keyFileCommands(0x05, 1024);
    sendAll(*card, {files[0], files[1]});             // the private key file alone
    EXPECT_EQ(sw("00460085 04 80020400 00"), 0x6A88); // generation wants both files
    ASSERT_EQ(sw("00E40000 02 0E05"), 0x9000);
    EXPECT_EQ(setEnvironment(0xB6, 0x85), 0x6A88); // a deleted key file takes its key along
}

// Reference FF, the last, names key files 0E7F/0F7F: never the files of FID 0EFF/0FFF that a
// reference of eight bits for the key number would reach.
TEST_F(KeyCommands, TheLastKeyReferenceNamesTheLastKeyFiles) {
    sendAll(*card, keyFileCommands(0xFF, 1024));
    EXPECT_EQ(sw("004601FF 00"), 0x6A88);
    EXPECT_EQ(setEnvironment(0xB6, 0xFF), 0x6A88);
    sendAll(*card, keyFileCommands(0x7F, 1024));
    EXPECT_EQ(sw("004601FF 00"), 0x6985); // found, no key yet
    EXPECT_EQ(sw("0046017F 00"), 0x6A88); // bit 8 clear: no key reference
    EXPECT_EQ(setEnvironment(0xB6, 0xFF), 0x9000);
}

// Each hash reference the card lists is for PSS signing or OAEP deciphering alone; SHA-512 PSS
// needs more than a 1024-bit key (two hashes and two bytes). Signatures and cryptograms of each
// hash checked in software: PaddingTest.PssAndOaepRunOnACardThatListsThem (pkcs11). Here the
// longest OAEP message, which leaves no freed copy of it, and hand-made SHA-256 OAEP blocks wrong
// in one place each (the first is right) refused alike.
TEST_F(KeyCommands, PssAndOaepWithEachHash) {
    const CryptoPP::RSA::PublicKey key = newKey(0x01, 1024);
    for (const auto& [p2, reference] :
         {std::pair{0xB8, 0x23}, {0xB8, 0x24}, {0xB8, 0x25}, {0xB6, 0x31}, {0xB6, 0x33}})
        EXPECT_EQ(setEnvironment(p2, 0x81, reference), 0x6A80) << reference;
    ASSERT_EQ(setEnvironment(0xB6, 0x81, 0x25), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2A, 0x9E, 0x9A, Bytes(64, 1), 0)), 0x6A80);

    ASSERT_EQ(setEnvironment(0xB8, 0x81, 0x33), 0x9000);
    CryptoPP::RSAES<CryptoPP::OAEP<CryptoPP::SHA256>>::Encryptor encryptor(key);
    CryptoPP::AutoSeededRandomPool rng;
    Bytes longest(encryptor.FixedMaxPlaintextLength()), cryptogram(128);
    std::iota(longest.begin(), longest.end(), std::uint8_t{0x80});
    encryptor.Encrypt(rng, longest.data(), longest.size(), cryptogram.data());
    freehook::lookFor({reinterpret_cast<const char*>(longest.data()), longest.size()});
    const Bytes answer = send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, cryptogram), 0));
    const std::size_t holding = freehook::blocksFreedHoldingSecret();
    freehook::lookFor("");
    EXPECT_EQ(answer, concat(longest, hex("9000")));
    EXPECT_EQ(holding, 0u);
    Bytes labelHash(32);
    CryptoPP::SHA256().CalculateDigest(labelHash.data(), nullptr, 0);
    for (const auto& [y, label, tail, answer] :
         std::vector<std::tuple<std::uint8_t, std::uint8_t, Bytes, Bytes>>{
             {0x00, 0x00, hex("01 4F4B"), hex("4F4B 9000")},
             {0x00, 0x00, hex("01"), hex("9000")},        // the empty message
             {0x01, 0x00, hex("01 4F4B"), hex("6A80")},   // first byte
             {0x00, 0x01, hex("01 4F4B"), hex("6A80")},   // label hash
             {0x00, 0x00, hex("02 4F4B"), hex("6A80")},   // separator
             {0x00, 0x00, hex("FF0001 4F"), hex("6A80")}, // padding
             {0x00, 0x00, hex("0000"), hex("6A80")}}) {   // no separator
        Bytes seed(32, 0x17), db = concat(labelHash, Bytes(95 - 32, 0x00));
        db[0] ^= label;
        std::copy(tail.begin(), tail.end(), db.end() - static_cast<std::ptrdiff_t>(tail.size()));
        CryptoPP::SHA256 hash;
        CryptoPP::P1363_MGF1().GenerateAndMask(hash, db.data(), db.size(), seed.data(), 32);
        CryptoPP::P1363_MGF1().GenerateAndMask(hash, seed.data(), 32, db.data(), db.size());
        const Integer block = key.ApplyFunction(integerOf(concat(concat({y}, seed), db)));
        EXPECT_EQ(send(apdu(0, 0x2A, 0x80, 0x86, concat({0x00}, bytesOf(block, 128)), 0)), answer);
    }
}

/// The CRT components e, p, q, q⁻¹, dp, dq of a key, in the order of tags 91 to 96.
std::vector<Bytes> crtComponents(const CryptoPP::InvertibleRSAFunction& key) {
    return {bytesOf(key.GetPublicExponent()),
            bytesOf(key.GetPrime1()),
            bytesOf(key.GetPrime2()),
            bytesOf(key.GetMultiplicativeInverseOfPrime2ModPrime1()),
            bytesOf(key.GetModPrime1PrivateExponent()),
            bytesOf(key.GetModPrime2PrivateExponent())};
}

/// The 7F48 template of the components, with extra after them.
Bytes importTemplate(const std::vector<Bytes>& components, const Bytes& extra = {}) {
    Bytes inner;
    for (std::size_t i = 0; i < components.size(); ++i)
        appendTlv(inner, static_cast<std::uint16_t>(0x91 + i), components[i]);
    inner = concat(inner, extra);
    Bytes keyTemplate;
    appendTlv(keyTemplate, 0x7F48, inner);
    return keyTemplate;
}

TEST_F(KeyCommands, ImportChecksComponentSizesByValue) {
    sendAll(*card, keyFileCommands(0x0C, 1024));
    CryptoPP::AutoSeededRandomPool rng;
    CryptoPP::InvertibleRSAFunction key;
    key.Initialize(rng, 1024, Integer(65537));
    const std::vector<Bytes> good = crtComponents(key);
    const auto import = [this](const std::vector<Bytes>& components, const Bytes& extra = {}) {
        return statusWord(sendChained(0xDB, 0x00, 0x8C, importTemplate(components, extra)));
    };
    const auto replacing = [&good](std::size_t index, const Bytes& value) {
        std::vector<Bytes> components = good;
        components[index] = value;
        return components;
    };
    // p and q of 32,000 bytes each: refused by their size, before any arithmetic on them.
    std::vector<Bytes> huge = replacing(1, concat({0x01}, Bytes(31999, 0x00)));
    huge[2] = concat({0x01}, Bytes(31999, 0x01));
    // p = 2 satisfies the CRT relations, but the image would refuse the key: so does the card.
    Integer q(rng, 1023);
    q.SetBit(1022);
    q.SetBit(0);
    while (CryptoPP::GCD(q - 1, Integer(65537)) != Integer::One())
        q += 2;
    const Integer d = Integer(65537).InverseMod(q - 1);
    const std::vector<Bytes> refused[] = {
        replacing(4, bytesOf(key.GetModPrime1PrivateExponent() + 1)), // dp off by one
        huge,
        replacing(3, concat({0x01}, good[1])), // q⁻¹ longer than p
        {good[0], {0x02}, bytesOf(q), {0x01}, {0x00}, bytesOf(d)},
    };
    for (std::size_t i = 0; i < std::size(refused); ++i)
        EXPECT_EQ(import(refused[i]), 0x6A80) << i;
    // A good key, but an object after it whose length runs one byte past the template.
    EXPECT_EQ(import(good, hex("970200")), 0x6A80);
    EXPECT_EQ(sw("00DB008C 04 7F480100"), 0x6A80);
    EXPECT_EQ(sw("0046018C00"), 0x6985); // every refusal left the key files empty

    // Leading zero bytes do not make a component larger: the padded key is accepted.
    std::vector<Bytes> padded = good;
    for (Bytes& component : padded)
        component = concat(Bytes(64, 0x00), component);
    EXPECT_EQ(import(padded), 0x9000);
    EXPECT_EQ(publicKeyOf(dataOf(send("0046018C00"))).first, key.GetModulus());
}

// EF(DIR) names the application, in the bytes any host's codec reads; EF(TokenInfo) as the
// plugin reads it: the e2e suites. Two cards differ there in their serials alone.
TEST(Personalisation, DirNamesTheApplicationAndEachCardHasASerialOfItsOwn) {
    const auto read = [](const std::unique_ptr<VirtualCard>& card, const std::string& path) {
        EXPECT_EQ(sw(*card, "00A4080C " + path), 0x9000) << path;
        return card->transmit(hex("00B0000000"));
    };
    const auto card = VirtualCard::personalised();
    const Bytes dir = read(card, "02 2F00");
    ASSERT_GE(dir.size(), 30u);
    EXPECT_EQ(Bytes(dir.begin(), dir.begin() + 30),
              hex("611C 4F0C A000000063504B43532D3135 5006 7031356B6974 5104 3F005015"));
    const Bytes tokenInfo = read(card, "04 5015 5032");
    EXPECT_EQ(statusWord(tokenInfo), 0x9000);
    EXPECT_NE(read(VirtualCard::personalised(), "04 5015 5032"), tokenInfo);
}

// PINs of fewer than four digits or not of digits, and a hashing card of the iso profile.
// The iso card's algorithm references are used by the plugin's iso profile suites.
TEST(Personalisation, RefusesOptionsThatDoNotFit) {
    Personalisation options;
    options.userPin = "123";
    EXPECT_THROW(personalise(options), std::invalid_argument);
    options.userPin = "12a456";
    EXPECT_THROW(personalise(options), std::invalid_argument);
    options = Personalisation();
    options.profile = CardProfile::Iso;
    options.hashOnCard = true;
    EXPECT_THROW(personalise(options), std::invalid_argument);
}

/// p15-vcard run without a controlling terminal; its exit status, output in output.
int runTool(const std::string& arguments, std::string& output) {
    const std::string command =
        "setsid -w " + std::string(P15_VCARD) + " " + arguments + " </dev/null 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    char chunk[512];
    for (std::size_t got; pipe && (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        output.append(chunk, got);
    return pipe ? ::pclose(pipe) : -1;
}

// Each PIN option reaches its PIN, none is printed, none is an argument. No source and no terminal:
// CardCommands.InitRefusesPinsItCannotUseAndWritesNothing (p15tool), which reads PINs alike.
TEST(PersonaliseTool, TakesPinsFromTheEnvironmentOrAFileNeverFromArguments) {
    const std::string image = ::testing::TempDir() + "personalise-" + std::to_string(getpid());
    const std::string pukFile = image + ".puk";
    std::ofstream(pukFile) << "24681357\nignored\n";
    ::setenv("P15_NEW_PIN", "4321", 1);
    std::string output;
    EXPECT_NE(runTool("personalise " + image + " --user-pin 4321", output), 0);
    EXPECT_FALSE(std::ifstream(image).good());
    output.clear();

    const std::string sources = " --pin-env P15_NEW_PIN --so-pin-env P15_NEW_PIN --puk-file ";
    ASSERT_EQ(runTool("personalise " + image + sources + pukFile, output), 0) << output;
    EXPECT_EQ(output.find("4321"), std::string::npos) << output;
    const CardState state = CardImage::load(image);
    EXPECT_EQ(state.pins.pins().at(1).value, paddedPin("4321"));
    EXPECT_EQ(state.pins.pins().at(2).value, paddedPin("24681357"));
    EXPECT_EQ(state.pins.pins().at(3).value, paddedPin("4321"));
    std::remove(image.c_str());
    std::remove(pukFile.c_str());
}

} // namespace
} // namespace vcard::test
