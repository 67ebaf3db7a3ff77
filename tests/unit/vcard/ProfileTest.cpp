// The two profiles side by side: one command sequence, the answer each profile gives.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"

namespace vcard::test {
namespace {

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
