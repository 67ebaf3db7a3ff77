// init, info and the card a command reaches, on virtual card images.
#include "ToolProcess.hpp"
#include "vcard/Personalise.hpp"

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <unistd.h>

namespace p15tool::test {
namespace {

class CardCommands : public CardFolder {
protected:
    std::string pinValue(std::uint8_t reference) const {
        const vcard::Bytes value = storedPin(reference).value;
        return std::string(value.begin(), std::find(value.begin(), value.end(), 0xFF));
    }
    Environment home() const { return {{"XDG_DATA_HOME", directory.path}}; }
};

// PINs from a file (its first line) or typed twice at a terminal, never echoed; a card replaced
// only with --force; a PIN init cannot use, or none, writes no image.
TEST_F(CardCommands, InitPersonalisesTheImageWithTheChosenPins) {
    for (const auto& [name, value, says] :
         {std::tuple{"USER_PIN", "123", "user PIN must have 4 to 8 digits"},
          {"PUK", "123456789", "PUK must have 4 to 8 digits"},
          {"SO_PIN", "12ab", "SO PIN must have 4 to 8 digits"}}) {
        EXPECT_TRUE(exited(init({{name, value}}), 2, says));
    }
    expect({"init"}, 2, "--pin-env VAR or --pin-file FILE");
    const auto typeIn = [&](const char* repeat) {
        return tool({"init", "--force", "--puk-env", "PUK", "--so-pin-env", "SO_PIN"}, {}, "",
                    {{"New user PIN: ", "97531"}, {"Repeat the new user PIN: ", repeat}});
    };
    const ToolResult mismatch = typeIn("97532");
    EXPECT_EQ(mismatch.exitCode, 2);
    EXPECT_TRUE(contains(mismatch.out, "entries differ"));
    EXPECT_FALSE(std::filesystem::exists(image));

    writeFile(file("pin"), "8642\r\nsecond line\n");
    const ToolResult result = succeed({"init", "--label", "Caf\xC3\xA9", "--pin-file", file("pin"),
                                       "--puk-env", "PUK", "--so-pin-env", "SO_PIN"});
    EXPECT_EQ(result.out.find("8642"), std::string::npos);
    EXPECT_EQ(std::tuple(pinValue(vcard::layout::userPinReference),
                         pinValue(vcard::layout::unblockingPinReference),
                         pinValue(vcard::layout::soPinReference)),
              std::tuple("8642", "13572468", "97531"));
    const std::string before = readFile(image);
    EXPECT_TRUE(exited(init(), 1, "--force"));
    EXPECT_EQ(readFile(image), before);
    EXPECT_TRUE(exited(init({}, {"--force"}), 0));
    EXPECT_EQ(pinValue(vcard::layout::userPinReference), "2468");
    const ToolResult typed = typeIn("97531");
    ASSERT_EQ(typed.exitCode, 0) << typed.out;
    EXPECT_TRUE(contains(typed.out, "Repeat the new user PIN: "));
    EXPECT_EQ(typed.out.find("97531"), std::string::npos) << typed.out;
    EXPECT_EQ(pinValue(vcard::layout::userPinReference), "97531");
}

// A relative XDG_DATA_HOME is ignored, as the XDG rules say.
TEST_F(CardCommands, TheDefaultCardIsCreatedOnFirstUseAndNamed) {
    const ToolResult first = runTool({"--json", "info"}, home());
    const std::string own = file("p15kit/card.json");
    ASSERT_TRUE(exited(first, 0, "created a new virtual card " + own));
    EXPECT_EQ(std::pair(first.json()["card"]["image"], first.json()["application"]["aid"]),
              std::pair(nlohmann::json(own), nlohmann::json("A000000063504B43532D3135")));
    const ToolResult second = runTool({"info"}, home());
    EXPECT_TRUE(exited(second, 0) && second.err.empty()) << second.err;
    EXPECT_TRUE(contains(second.out, "image  " + own));

    const TemporaryDirectory other;
    EXPECT_TRUE(
        exited(runTool({"info"}, {{"HOME", other.path}, {"XDG_DATA_HOME", "relative/data"}}), 0));
    EXPECT_TRUE(std::filesystem::exists(other.file(".local/share/p15kit/card.json")));
}

// Every failure is one line (exited() checks it) naming what failed and the next step; malformed
// options are refused before the card is opened.
TEST_F(CardCommands, FailuresHaveTheirExitCodesAndOneLine) {
    const std::string corrupt = file("corrupt.json"), prkdf = file("prkdf.json"),
                      odf = file("odf.json"), held = file("held.json");
    writeFile(corrupt, "{\"version\": 1, \"files\": [");
    ASSERT_TRUE(exited(init(), 0));
    for (const std::string& copy : {prkdf, odf, held}) {
        std::filesystem::copy_file(image, copy);
    }
    const auto overwrite = [](const std::string& copy, std::uint16_t fid, vcard::Bytes bytes) {
        editCardFile(copy, fid, [&](vcard::CardFile& ef) {
            std::copy(bytes.begin(), bytes.end(), ef.content.begin());
        });
    };
    overwrite(prkdf, 0x4400, {0x30, 0x82, 0xFF, 0xFF});
    overwrite(odf, 0x5031, {0xA0, 0xFF});
    const int lock = ::open((held + ".lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    editCardFile(image, 0x5031, [](vcard::CardFile& odf) { odf.security = {}; }); // never read
    const std::string nowhere = "/nonexistent/card.json";
    // clang-format off
    std::vector<Expected> cases{
        {{"--card", image, "list"}, 3, "Read Binary: 6982"},
        {{"--card", prkdf, "keygen", "--label", "K", "--pin-env", "USER_PIN"}, 1, "EF(PrKDF) 4400 on the card is not valid DER: directory file structure broken; the file is not changed (0); a dump of the file shows where, with: p15tool decode --kind prkdf FILE"},
        {{"--card", odf, "pin", "status"}, 1, "EF(ODF) 5031 on the card is not valid DER: ASN.1: length beyond data (1)"},
        {{"--card", held, "pin", "status"}, 3, "is in use by another process: not free after 1000 ms; another program holds the card (a browser, an ssh agent, another p15tool): end it, or wait longer with P15_TRANSACTION_TIMEOUT=SECONDS"},
        {{"readers"}, 3, "pcscd"},
        {{"--card", file("none.json"), "info"}, 5, "p15tool --card"},
        {{"--card", corrupt, "info"}, 1, corrupt},
        {{"--conf", file("none.conf"), "info"}, 5, "check --conf"},
        {{"--card", corrupt, "--reader", "x", "info"}, 2, "excludes"},
        {{"--reader", "x", "init"}, 2, "leave out --reader"},
        {{"info", "--bogus"}, 2, "bogus; see p15tool info --help"},
        {{}, 2, "subcommand"},
        {{"lst"}, 2, "unknown command \"lst\": did you mean \"list\"?"},
        {{"pin", "stauts"}, 2, "did you mean \"status\"?; see p15tool pin --help"},
        {{"--card", nowhere, "data", "write", "/dev/null", "--label", "L", "--oid", "1.2.-3"}, 2, "is not an object identifier"},
        {{"--card", nowhere, "sign", "--pss", "--alg", "sha1"}, 2, "--pss takes --alg sha256, sha384, sha512 or raw, not sha1"},
        {{"encrypt", "--alg", "sha1"}, 2, "--alg requires --oaep"}};
    // clang-format on
    // Attribute=value pairs of known types, a country of two letters, an e-mail address in ASCII.
    for (const char* subject :
         {"", "CN", "XX=1", "C=Germany", "emailAddress=zo\xC3\xAB@x.org", "CN="}) {
        cases.push_back({{"--card", nowhere, "selfsign", "--subject", subject}, 2, "--subject: "});
    }
    Environment around = home(); // with the PINs, pcscd away
    around.insert(around.end(), environment.begin(), environment.end());
    around.insert(around.end(),
                  {{"P15_TRANSACTION_TIMEOUT", "1"}, {"PCSCLITE_CSOCK_NAME", file("no-pcscd")}});
    test::expectEach(cases, [&](const Arguments& arguments) { return runTool(arguments, around); });
    ::close(lock);
    EXPECT_EQ(readFile(corrupt), "{\"version\": 1, \"files\": [");
    EXPECT_EQ(runTool({"frobnicate"}).err.find("did you mean"), std::string::npos)
        << "nothing near it";
}

} // namespace
} // namespace p15tool::test
