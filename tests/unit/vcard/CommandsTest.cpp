// The virtual card's commands: transport, PINs, the two profiles, files, limits; personalisation.

#include "CardTestSupport.hpp"
#include "FreeHook.hpp"

#include "vcard/CardImage.hpp"
#include "vcard/Tlv.hpp"

#include <cstdio>
#include <fstream>

namespace vcard::test {
namespace {

using Transport = CardTest;
using PinCommands = CardTest;

// Malformed commands get a status word and leave the card working (random ones: fuzz/vcard_apdu);
// chains are bounded and not interleaved.
TEST_F(Transport, MalformedCommandsGetAStatusWordAndChainsAreBounded) {
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
    // A chain broken by another command is refused and dropped; one beyond 64 KiB is refused.
    EXPECT_EQ(sw(apdu(0x10, 0xD6, 0x00, 0x00, Bytes(10, 1))), 0x9000);
    EXPECT_EQ(sw(apdu(0x00, 0xD6, 0x00, 0x01, Bytes(10, 1))), 0x6883);
    EXPECT_EQ(sw("00A40204 02 5031"), 0x9000); // the chain is gone
    for (int i = 0; i < 257; ++i)
        ASSERT_EQ(sw(apdu(0x10, 0xD6, 0, 0, Bytes(255, 0))), 0x9000);
    EXPECT_EQ(sw(apdu(0x10, 0xD6, 0, 0, Bytes(255, 0))), 0x6700);
}

// GET RESPONSE with a wrong Le gets 6Cxx and keeps the data.
TEST_F(Transport, GetResponsePowerAndExtendedLengths) {
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
    // Power-off silences the card until a reset; a card without extended lengths refuses them.
    card->powerOff();
    EXPECT_THROW(send("00A4000C"), CardRemoved);
    card->reset();
    EXPECT_EQ(sw("00A4000C"), 0x9000);
    card->setExtendedLength(false); // its ATR: the InProcessShort suites of the host
    EXPECT_EQ(sw("00B0000000 0100"), 0x6700) << "extended Le";
    EXPECT_EQ(sw("00A40800 000002 5015"), 0x6700) << "extended Lc";
    EXPECT_EQ(sw("00A40800 02 5015"), 0x9000);
}

// VERIFY without data tells the status and costs no try; refusals of form cost none either. New
// values at work: the PIN suites of p15tool and pkcs11.
TEST_F(PinCommands, VerifyChangeAndResetRetryCounter) {
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

    // CHANGE REFERENCE DATA checks the old value (the right one verifies the PIN and gives the try
    // back); RESET RETRY COUNTER gives the tries back and verifies the PUK, a blocked PUK blocks
    // it, the SO PIN has none.
    card = VirtualCard::personalised();
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
    // The command's INS and P1, then the value it carries, a new value after it when given.
    // clang-format off
    const std::tuple<std::uint8_t, std::uint8_t, const char*, const char*> rows[] = {
        {0x20, 0, "123456", ""}, {0x20, 0, "654321", ""}, {0x24, 0, "123456", "2468"}, {0x24, 0, "654321", "2468"},
        {0x2C, 1, "12345678", ""}, {0x2C, 1, "87654321", ""}, {0x2C, 0, "12345678", "97"}};
    // clang-format on
    for (const auto& [ins, p1, value, next] : rows) {
        card = VirtualCard::personalised();
        const Bytes secret = paddedPin(value);
        const Bytes command = apdu(0, ins, p1, 1, *next ? concat(secret, paddedPin(next)) : secret);
        freehook::lookFor({reinterpret_cast<const char*>(secret.data()), secret.size()});
        send(command);
        const std::size_t holding = freehook::blocksFreedHoldingSecret();
        freehook::lookFor("");
        EXPECT_EQ(holding, 0u) << int(ins) << " " << value;
    }
}

// On a card that went through its image, with the user PIN verified and key pair 81 generated.
// The PIN commands of each profile: PinCommands (p15tool) and ProfiledModuleTest (pkcs11).
TEST(Profiles, EachAnswersTheSameCommandsAsItsMakeDoes) {
    // The command; its status word and answer length on the native card, then on the iso one.
    using Step = std::tuple<std::string, std::uint16_t, std::size_t, std::uint16_t, std::size_t>;
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
        for (const auto& [command, nativeSw, nativeLength, isoSw, isoLength] : steps) {
            const Bytes answer = card.transmit(hex(command));
            EXPECT_EQ(std::make_pair(statusWord(answer), answer.size() - 2),
                      iso ? std::make_pair(isoSw, isoLength)
                          : std::make_pair(nativeSw, nativeLength))
                << command;
            if (command.rfind("00A4", 0) == 0) {
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

// Every SELECT method reaches its file and answers an FCP naming it (tag 83).
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
// SELECT keeps the current file.
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
    verifyUserPin();
    ASSERT_EQ(sw("00A4020C 02 4408"), 0x9000); // AODF: the user PIN or the SO PIN
    EXPECT_EQ(sw("00D603FF 01 00"), 0x9000);
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
// byte past its template included.
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

// The card refuses with 6A84 where the image loader's limits lie (DFs down to depth 16, 4096
// files, 256 key files; memory runs out first), and what it built still loads.
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

// EF(DIR) names the application; two cards differ in their serials; unfit options are refused.
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
    // PINs of fewer than four digits or not of digits, and a hashing card of the iso profile.
    for (const auto& [pin, profile, hash] : {std::tuple{"123", CardProfile::Native, false},
                                             {"12a456", CardProfile::Native, false},
                                             {"123456", CardProfile::Iso, true}}) {
        Personalisation options;
        std::tie(options.userPin, options.profile, options.hashOnCard) =
            std::tie(pin, profile, hash);
        EXPECT_THROW(personalise(options), std::invalid_argument) << pin;
    }
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

// Each PIN option reaches its PIN, none is printed, none is an argument.
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
    const auto pins = CardImage::load(image).pins.pins();
    EXPECT_EQ((std::vector{pins.at(1).value, pins.at(2).value, pins.at(3).value}),
              (std::vector{paddedPin("4321"), paddedPin("24681357"), paddedPin("4321")}));
    std::remove(image.c_str());
    std::remove(pukFile.c_str());
}

} // namespace
} // namespace vcard::test
