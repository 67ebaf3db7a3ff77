// The personalised card's EF(DIR) and serial; the options and PINs personalisation takes.

#include "CardTestSupport.hpp"

#include "vcard/CardImage.hpp"

#include <cstdio>
#include <fstream>

namespace vcard::test {
namespace {

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
