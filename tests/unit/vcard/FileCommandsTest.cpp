// SELECT, READ/UPDATE BINARY, CREATE/DELETE FILE, access conditions and the card's limits.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"
#include "vcard/Tlv.hpp"

namespace vcard::test {
namespace {

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
        {"00A40404 0C A000000063504B43532D3135 00", "5015"},
        {"00A40800 04 5015 4408 00", "4408"},
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

} // namespace
} // namespace vcard::test
