// The two profiles side by side: one command sequence, the answer each profile gives.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"
#include "vcard/Tlv.hpp"

namespace vcard::test {
namespace {

/// A card of the profile that went through its image, with the user PIN verified and key pair
/// 81 (1024 bits) generated.
std::unique_ptr<VirtualCard> preparedCard(CardProfile profile) {
    Personalisation options;
    options.profile = profile;
    auto card = std::make_unique<VirtualCard>(
        CardImage::parse(CardImage::serialise(personalise(options)), "memory"));
    for (const Bytes& command :
         {hex("00A4040C 0C A000000063504B43532D3135"), apdu(0, 0x20, 0, 1, paddedPin("123456")),
          createFile("80020400 820111 83020E01", "A0029700 A103880101 A203880101 A303880101"),
          hex("00A4000C 02 5015"),
          createFile("80020400 820112 83020F01", "A0029000 A103880101 A203880101 A3029700"),
          hex("00460081 04 80020400 00")})
        EXPECT_EQ(statusWord(card->transmit(command)), 0x9000) << toHex(command);
    return card;
}

struct Answer {
    std::uint16_t sw;
    std::size_t length;
};

struct Step {
    const char* what;
    std::string command;
    Answer native, iso;
};

const std::string wrongPin = "3030303030303030";

TEST(Profiles, EachAnswersTheSameCommandsAsItsMakeDoes) {
    const std::vector<Step> steps = {
        {"GET DATA algorithms", "00CA01A0 00", {0x9000, 13}, {0x6A81, 0}},
        {"GET CHALLENGE, Le 4", "00840000 04", {0x9000, 4}, {0x6C08, 0}},
        {"GET CHALLENGE, Le 16", "00840000 10", {0x9000, 16}, {0x9000, 8}},
        {"GET CHALLENGE, Le 256", "00840000 00", {0x9000, 256}, {0x9000, 8}},
        {"GET CHALLENGE, extended Le", "00840000 000010", {0x9000, 16}, {0x6700, 0}},
        {"MSE sign, no algorithm", "002241B6 03 840181", {0x9000, 0}, {0x6A80, 0}},
        {"MSE sign, the card's own", "002241B6 06 840181 800102", {0x6A80, 0}, {0x9000, 0}},
        {"sign", "002A9E9A 04 01020304 00", {0x9000, 128}, {0x9000, 128}},
        {"MSE sign, the decipher one", "002241B6 06 840181 80010A", {0x6A80, 0}, {0x6A80, 0}},
        {"MSE decipher, the card's own", "002241B8 06 840181 80010A", {0x6A80, 0}, {0x9000, 0}},
        {"MSE decipher, 01", "002241B8 06 840181 800101", {0x9000, 0}, {0x6A80, 0}},
        {"MSE decipher, no algorithm", "002241B8 03 840181", {0x9000, 0}, {0x6A80, 0}},
        {"PIN status, verified", "00200001", {0x9000, 0}, {0x6A86, 0}},
        {"SO PIN wrong", "00200003 08" + wrongPin, {0x63C2, 0}, {0x6300, 0}},
        {"SO PIN status, costs no try", "00200003", {0x63C2, 0}, {0x6A86, 0}},
        {"SO PIN wrong again", "00200003 08" + wrongPin, {0x63C1, 0}, {0x6300, 0}},
        {"SO PIN blocked by this try", "00200003 08" + wrongPin, {0x63C0, 0}, {0x6983, 0}},
        {"SO PIN right, too late",
         "00200003 08" + toHex(paddedPin("87654321")),
         {0x6983, 0},
         {0x6983, 0}},
        {"unblock with a wrong PUK", "002C0101 08" + wrongPin, {0x63C4, 0}, {0x6300, 0}},
        {"change with a wrong old PIN",
         "00240001 10" + wrongPin + wrongPin,
         {0x63C2, 0},
         {0x6300, 0}},
    };
    for (CardProfile profile : {CardProfile::Native, CardProfile::Iso}) {
        SCOPED_TRACE(profileName(profile));
        auto card = preparedCard(profile);
        for (const Step& step : steps) {
            const Bytes answer = card->transmit(hex(step.command));
            const Answer& expected = profile == CardProfile::Iso ? step.iso : step.native;
            EXPECT_EQ(statusWord(answer), expected.sw) << step.what << std::hex;
            EXPECT_EQ(answer.size() - 2, expected.length) << step.what;
        }
        // The iso card counts every wrong value as the native one does, and no status query.
        const auto& pins = card->state().pins.pins();
        EXPECT_EQ(pins.at(0x01).triesLeft, 2);
        EXPECT_EQ(pins.at(0x02).triesLeft, 4);
        EXPECT_EQ(pins.at(0x03).triesLeft, 0);
    }
}

TEST(Profiles, AtrAndFcpTellTheProfile) {
    const std::vector<std::uint16_t> nativeTags = {0x80, 0x82, 0x83, 0x8A, 0xA1};
    const std::vector<std::uint16_t> isoTags = {0x82, 0x83, 0x80, 0x85, 0x8A, 0xA1, 0xA5};
    for (CardProfile profile : {CardProfile::Native, CardProfile::Iso}) {
        SCOPED_TRACE(profileName(profile));
        auto card = preparedCard(profile);
        const bool iso = profile == CardProfile::Iso;
        EXPECT_EQ(card->atr()[7], iso ? 0x80 : 0xC0) << "extended Lc/Le in the capabilities";
        const Bytes answer = card->transmit(hex("00A40800 04 5015 5032 00"));
        ASSERT_EQ(statusWord(answer), 0x9000);
        const std::vector<Tlv> fcp = parseTlvs(parseTlvs(dataOf(answer)).at(0).value);
        std::vector<std::uint16_t> tags;
        for (const Tlv& item : fcp)
            tags.push_back(item.tag);
        EXPECT_EQ(tags, iso ? isoTags : nativeTags);
        EXPECT_EQ(*findTlv(fcp, 0x80), hex("0200")) << "the file size, wherever it stands";
    }
}

} // namespace
} // namespace vcard::test
