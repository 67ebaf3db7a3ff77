// EF(DIR) and the TokenInfo serial of the personalised card, read through APDUs and decoded;
// the PINs p15-vcard personalise takes.

#include "CardTestSupport.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <cstdio>
#include <fstream>

namespace vcard::test {
namespace {

namespace oss = app::pkcs15::oss;

class Personalised : public CardTest {
protected:
    /// The content of the EF at the path (from the MF), read whole.
    Bytes readFile(const std::string& path) {
        Bytes select = apdu(0, 0xA4, 0x08, 0x0C, hex(path));
        EXPECT_EQ(sw(select), 0x9000);
        Bytes content;
        for (std::uint16_t status = 0x9000; status == 0x9000;) {
            Bytes response = send(apdu(0, 0xB0, static_cast<std::uint8_t>(content.size() >> 8),
                                       static_cast<std::uint8_t>(content.size()), {}, 0));
            status = statusWord(response);
            if (status == 0x6B00)
                break;
            content = concat(content, dataOf(response));
        }
        return content;
    }

    template <class T> std::vector<T> decodeAll(const Bytes& content) {
        std::vector<T> values;
        std::size_t offset = 0;
        while (offset < content.size() && content[offset] != 0x00) {
            T value;
            offset += oss::decode(content.data() + offset, content.size() - offset, value);
            values.push_back(value);
        }
        return values;
    }
};

// EF(DIR) names the application; TokenInfo lists the card's algorithm and a serial of its own.
TEST_F(Personalised, DirAndTokenInfo) {
    auto records = decodeAll<oss::DIRRecord>(readFile("2F00"));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].aid, pkcs15ApplicationId());
    EXPECT_EQ(records[0].path, hex("3F005015"));
    auto info = decodeAll<oss::TokenInfo>(readFile("5015 5032")).at(0);
    ASSERT_TRUE(info.serialNumber && info.supportedAlgorithms);
    EXPECT_EQ(info.serialNumber->size(), 8u);
    EXPECT_EQ(oss::oidToText(*info.supportedAlgorithms->at(0).algId), "1.2.840.113549.1.1.1");
    card = VirtualCard::personalised();
    auto otherInfo = decodeAll<oss::TokenInfo>(readFile("5015 5032")).at(0);
    ASSERT_TRUE(otherInfo.serialNumber);
    EXPECT_NE(*otherInfo.serialNumber, *info.serialNumber);
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

} // namespace
} // namespace vcard::test

namespace vcard::test {
namespace {

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

TEST(PersonaliseTool, TakesPinsFromTheEnvironmentOrAFileNeverFromArguments) {
    const std::string image = ::testing::TempDir() + "personalise-" + std::to_string(getpid());
    const std::string pukFile = image + ".puk";
    std::ofstream(pukFile) << "24681357\nignored\n";
    ::setenv("P15_NEW_PIN", "4321", 1);
    std::string output;
    EXPECT_NE(runTool("personalise " + image + " --user-pin 4321", output), 0);
    EXPECT_NE(runTool("personalise " + image, output), 0);
    EXPECT_NE(output.find("--pin-env VAR or --pin-file FILE"), std::string::npos) << output;
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
