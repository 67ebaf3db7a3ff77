// What the tool says about itself and its command line, and where it keeps
// the user's own card.
#include "ToolProcess.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

namespace p15tool::test {
namespace {

TEST(CommandLine, VersionAndTheNearestCommandToAMistypedOne) {
    const ToolResult version = runTool({"--version"});
    EXPECT_TRUE(exited(version, 0));
    EXPECT_TRUE(std::regex_match(version.out, std::regex("p15tool [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << version.out;
    EXPECT_TRUE(exited(runTool({"lst"}), 2, "unknown command \"lst\": did you mean \"list\"?"));
    EXPECT_TRUE(contains(runTool({"pin", "stauts"}).err,
                         "did you mean \"status\"?; see p15tool pin --help"));
    EXPECT_EQ(runTool({"frobnicate"}).err.find("did you mean"), std::string::npos)
        << "nothing near it";
}

// The XDG rule: a relative XDG_DATA_HOME is ignored.
TEST(CommandLine, ARelativeXdgDataHomeIsIgnored) {
    const TemporaryDirectory home;
    const ToolResult info =
        runTool({"info"}, {{"HOME", home.path()}, {"XDG_DATA_HOME", "relative/data"}});
    EXPECT_TRUE(exited(info, 0));
    EXPECT_TRUE(std::filesystem::exists(home.file(".local/share/p15kit/card.json"))) << info.err;
}

// A malformed --oid (the codec's test has the forms) is refused before the
// card (here none) is opened.
TEST(CommandLine, AMalformedObjectIdentifierIsAUsageError) {
    EXPECT_TRUE(exited(runTool({"--card", "/nonexistent/card.json", "data", "write", "/dev/null",
                                "--label", "L", "--oid", "1.2.-3"}),
                       2, "is not an object identifier"));
}

using BrokenCard = InitialisedCard;

// A directory file that is not valid DER is named, with the next step.
TEST_F(BrokenCard, ACorruptDirectoryFileIsNamed) {
    const auto overwrite = [&](std::uint16_t fid, const vcard::Bytes& bytes) {
        editCardFile(image, fid, [&](vcard::Bytes& content) {
            std::copy(bytes.begin(), bytes.end(), content.begin());
        });
    };
    overwrite(0x4400, {0x30, 0x82, 0xFF, 0xFF});
    const ToolResult keygen = tool({"keygen", "--label", "K", "--pin-env", "USER_PIN"});
    EXPECT_TRUE(exited(keygen, 1,
                       "EF(PrKDF) 4400 on the card is not valid DER: directory file structure "
                       "broken"));
    EXPECT_TRUE(contains(keygen.err, "p15tool decode --kind prkdf FILE"));
    overwrite(0x5031, {0xA0, 0xFF});
    EXPECT_TRUE(exited(tool({"pin", "status"}), 1,
                       "EF(ODF) 5031 on the card is not valid DER: ASN.1: length beyond data (1)"));
}

} // namespace
} // namespace p15tool::test
