// What the tool says about itself and its command line, and where it keeps
// the user's own card.
#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <sys/stat.h>

namespace p15tool::test {
namespace {

TEST(CommandLine, VersionAndTheNearestCommandToAMistypedOne) {
    const ToolResult version = runTool({"--version"});
    EXPECT_EQ(version.exitCode, 0) << version.err;
    EXPECT_TRUE(std::regex_match(version.out, std::regex("p15tool [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << version.out;
    const ToolResult top = runTool({"lst"});
    EXPECT_EQ(top.exitCode, 2);
    EXPECT_NE(top.err.find("unknown command \"lst\": did you mean \"list\"?"), std::string::npos)
        << top.err;
    const ToolResult nested = runTool({"pin", "stauts"});
    EXPECT_NE(nested.err.find("did you mean \"status\"?; see p15tool pin --help"),
              std::string::npos)
        << nested.err;
    EXPECT_EQ(runTool({"frobnicate"}).err.find("did you mean"), std::string::npos)
        << "nothing near it";
}

// The XDG rule: a relative XDG_DATA_HOME is ignored.
TEST(CommandLine, ARelativeXdgDataHomeIsIgnored) {
    const TemporaryDirectory home;
    const ToolResult info =
        runTool({"info"}, {{"HOME", home.path()}, {"XDG_DATA_HOME", "relative/data"}});
    EXPECT_EQ(info.exitCode, 0) << info.err;
    struct stat status {};
    EXPECT_EQ(::stat(home.file(".local/share/p15kit/card.json").c_str(), &status), 0) << info.err;
}

// Writes `bytes` at the start of the application's file `fid` in `image`.
void overwrite(const std::string& image, std::uint8_t fidHigh, std::uint8_t fidLow,
               const vcard::Bytes& bytes) {
    vcard::CardState state = vcard::CardImage::load(image);
    vcard::Bytes& content =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, fidHigh, fidLow}, true).content;
    std::copy(bytes.begin(), bytes.end(), content.begin());
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
}

using BrokenCard = InitialisedCard;

// A directory file that is not valid DER is named, with the next step.
TEST_F(BrokenCard, ACorruptDirectoryFileIsNamed) {
    overwrite(image, 0x44, 0x00, {0x30, 0x82, 0xFF, 0xFF});
    const ToolResult keygen = tool({"keygen", "--label", "K", "--pin-env", "USER_PIN"});
    EXPECT_EQ(keygen.exitCode, 1);
    EXPECT_NE(keygen.err.find("EF(PrKDF) 4400 on the card is not valid DER: directory file "
                              "structure broken"),
              std::string::npos)
        << keygen.err;
    EXPECT_NE(keygen.err.find("p15tool decode --kind prkdf FILE"), std::string::npos);
    overwrite(image, 0x50, 0x31, {0xA0, 0xFF});
    const ToolResult status = tool({"pin", "status"});
    EXPECT_EQ(status.exitCode, 1);
    EXPECT_NE(status.err.find("EF(ODF) 5031 on the card is not valid DER: ASN.1: length beyond "
                              "data (1)"),
              std::string::npos)
        << status.err;
}

} // namespace
} // namespace p15tool::test
