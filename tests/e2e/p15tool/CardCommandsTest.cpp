// init, info and the card a command reaches, through the plugin on virtual
// card images; PINs typed at a terminal through a pseudo-terminal.
#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <poll.h>
#include <pty.h>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace p15tool::test {
namespace {

class CardCommands : public ::testing::Test {
protected:
    // PINs for init from the environment, as a script gives them.
    const Environment pins{{"USER_PIN", "2468"}, {"PUK", "13572468"}, {"SO_PIN", "97531"}};

    // init on `image`, `changed` overriding those PINs.
    ToolResult init(const std::string& image, std::vector<std::string> extra = {},
                    const Environment& changed = {}) {
        std::vector<std::string> arguments{"--card",    image,          "init",
                                           "--pin-env", "USER_PIN",     "--puk-env",
                                           "PUK",       "--so-pin-env", "SO_PIN"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        Environment environment = pins;
        environment.insert(environment.end(), changed.begin(), changed.end());
        return runTool(arguments, environment);
    }

    // The user's own card lives in this directory.
    Environment home() const { return {{"XDG_DATA_HOME", directory.path()}}; }

    TemporaryDirectory directory;
    const std::string image = directory.file("card.json");
};

std::string storedPin(const std::string& image, std::uint8_t reference) {
    const vcard::CardState state = vcard::CardImage::load(image);
    const vcard::Bytes& value = state.pins.pins().at(reference).value;
    return std::string(value.begin(), std::find(value.begin(), value.end(), 0xFF));
}

// init stores the PINs it is given (from a file: its first line), prints
// none, and replaces a card only with --force.
TEST_F(CardCommands, InitPersonalisesTheImageWithTheChosenPins) {
    writeFile(directory.file("pin"), "8642\r\nsecond line\n");
    const ToolResult result =
        runTool({"--card", image, "init", "--label", "Caf\xC3\xA9", "--pin-file",
                 directory.file("pin"), "--puk-env", "PUK", "--so-pin-env", "SO_PIN"},
                pins);
    ASSERT_TRUE(exited(result, 0));
    EXPECT_EQ(result.out.find("8642"), std::string::npos);
    EXPECT_EQ(storedPin(image, vcard::layout::userPinReference), "8642");
    EXPECT_EQ(storedPin(image, vcard::layout::unblockingPinReference), "13572468");
    EXPECT_EQ(storedPin(image, vcard::layout::soPinReference), "97531");

    const std::string before = readFile(image);
    EXPECT_TRUE(exited(init(image), 1, "--force"));
    EXPECT_EQ(readFile(image), before);
    EXPECT_TRUE(exited(init(image, {"--force"}), 0));
    EXPECT_EQ(storedPin(image, vcard::layout::userPinReference), "2468");
}

// A PIN init cannot use, or none without a terminal to ask on, is a usage
// error that writes no image.
TEST_F(CardCommands, InitRefusesPinsItCannotUseAndWritesNothing) {
    const struct {
        Environment environment;
        const char* says;
    } cases[] = {
        {{{"USER_PIN", "123"}}, "user PIN must have 4 to 8 digits"},
        {{{"PUK", "123456789"}}, "PUK must have 4 to 8 digits"},
        {{{"SO_PIN", "12ab"}}, "SO PIN must have 4 to 8 digits"},
    };
    for (const auto& each : cases) {
        const ToolResult result = init(image, {}, each.environment);
        EXPECT_TRUE(exited(result, 2, each.says));
        EXPECT_TRUE(result.out.empty());
    }
    EXPECT_TRUE(exited(runTool({"--card", image, "init"}), 2, "--pin-env VAR or --pin-file FILE"));
    EXPECT_FALSE(std::filesystem::exists(image));
}

// The user's own card is made on first use and named once; a relative
// XDG_DATA_HOME is ignored, as the XDG rules say.
TEST_F(CardCommands, TheDefaultCardIsCreatedOnFirstUseAndNamed) {
    const ToolResult first = runTool({"--json", "info"}, home());
    const std::string own = directory.file("p15kit/card.json");
    ASSERT_TRUE(exited(first, 0, "created a new virtual card " + own));
    const nlohmann::json info = first.json();
    EXPECT_EQ(info["card"]["image"], own);
    EXPECT_EQ(info["application"]["aid"], "A000000063504B43532D3135");
    EXPECT_FALSE(info["card"]["atr"].get<std::string>().empty());
    EXPECT_EQ(info["signatureAlgorithms"].at(0)["name"], "rsaEncryption");
    const ToolResult second = runTool({"info"}, home());
    ASSERT_TRUE(exited(second, 0));
    EXPECT_TRUE(second.err.empty()) << second.err;
    EXPECT_TRUE(contains(second.out, "image  " + own));

    const TemporaryDirectory other;
    EXPECT_TRUE(
        exited(runTool({"info"}, {{"HOME", other.path()}, {"XDG_DATA_HOME", "relative/data"}}), 0));
    EXPECT_TRUE(std::filesystem::exists(other.file(".local/share/p15kit/card.json")));
}

// Makes the EF(ODF) of `image` unreadable: the card refuses to read it.
void makeOdfUnreadable(const std::string& image) {
    nlohmann::json card = nlohmann::json::parse(readFile(image));
    for (auto& df : card["mf"]["children"]) {
        if (df["fid"] != "5015") {
            continue;
        }
        for (auto& ef : df["children"]) {
            if (ef["fid"] == "5031") {
                ef["security"] = "A0029700" + ef["security"].get<std::string>().substr(8);
            }
        }
    }
    writeFile(image, card.dump());
}

// Every failure is one line with its exit code, naming what failed and the
// next step: a card that refuses a read, pcscd away, a missing or corrupt
// image, options that exclude each other, a mistyped command (with the
// nearest one), a malformed --oid refused before the card is opened.
TEST_F(CardCommands, FailuresHaveTheirExitCodesAndOneLine) {
    const std::string corrupt = directory.file("corrupt.json");
    writeFile(corrupt, "{\"version\": 1, \"files\": [");
    const std::string refusing = directory.file("refusing.json");
    ASSERT_EQ(init(refusing).exitCode, 0);
    makeOdfUnreadable(refusing);
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string says;
    } cases[] = {
        {{"--card", refusing, "list"}, 3, "Read Binary: 6982"},
        {{"readers"}, 3, "pcscd"},
        {{"--card", directory.file("none.json"), "info"}, 5, "p15tool --card"},
        {{"--card", corrupt, "info"}, 1, corrupt},
        {{"--conf", directory.file("none.conf"), "info"}, 5, "check --conf"},
        {{"--card", corrupt, "--reader", "x", "info"}, 2, "excludes"},
        {{"--reader", "x", "init"}, 2, "leave out --reader"},
        {{"info", "--bogus"}, 2, "bogus; see p15tool info --help"},
        {{}, 2, "subcommand"},
        {{"lst"}, 2, "unknown command \"lst\": did you mean \"list\"?"},
        {{"pin", "stauts"}, 2, "did you mean \"status\"?; see p15tool pin --help"},
        {{"--card", "/nonexistent/card.json", "data", "write", "/dev/null", "--label", "L", "--oid",
          "1.2.-3"},
         2,
         "is not an object identifier"},
    };
    Environment environment = home();
    environment.emplace_back("PCSCLITE_CSOCK_NAME", directory.file("no-pcscd")); // pcscd is away
    for (const auto& each : cases) {
        SCOPED_TRACE(each.says);
        const ToolResult result = runTool(each.arguments, environment);
        EXPECT_TRUE(exited(result, each.exitCode, each.says));
        EXPECT_EQ(result.err.rfind("p15tool: ", 0), 0u) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
    }
    EXPECT_EQ(readFile(corrupt), "{\"version\": 1, \"files\": [");
    EXPECT_EQ(runTool({"frobnicate"}).err.find("did you mean"), std::string::npos)
        << "nothing near it";
    const ToolResult version = runTool({"--version"});
    EXPECT_TRUE(exited(version, 0));
    EXPECT_TRUE(std::regex_match(version.out, std::regex("p15tool [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << version.out;
}

// The terminal side of a pseudo-terminal: what the tool wrote, until `text`.
std::string readUntil(int terminal, const std::string& text) {
    std::string seen;
    char buffer[256];
    while (seen.find(text) == std::string::npos) {
        pollfd ready{terminal, POLLIN, 0};
        if (::poll(&ready, 1, 10000) <= 0) {
            break;
        }
        const ssize_t got = ::read(terminal, buffer, sizeof buffer);
        if (got <= 0) {
            break;
        }
        seen.append(buffer, static_cast<std::size_t>(got));
    }
    return seen;
}

struct Typed {
    int exitCode;
    std::string screen;
};

// Runs init on a pseudo-terminal and types the user PIN at its prompts.
Typed typeUserPin(const std::string& image, const std::string& first, const std::string& repeat) {
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::setenv("PUK", "13572468", 1);
        ::setenv("SO_PIN", "97531", 1);
        ::execl(P15TOOL_PATH, P15TOOL_PATH, "--card", image.c_str(), "init", "--puk-env", "PUK",
                "--so-pin-env", "SO_PIN", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    const auto type = [terminal](const std::string& pin) {
        const std::string line = pin + "\n";
        EXPECT_EQ(::write(terminal, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    };
    std::string screen = readUntil(terminal, "New user PIN: ");
    type(first);
    screen += readUntil(terminal, "Repeat the new user PIN: ");
    type(repeat);
    screen += readUntil(terminal, "\x04"); // everything, until the tool closes the terminal
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, screen};
}

// A PIN typed at the terminal is asked twice and never echoed; entries that
// differ write no image.
TEST_F(CardCommands, PinTypedAtTheTerminalIsNotEchoed) {
    const Typed typed = typeUserPin(image, "97531", "97531");
    ASSERT_EQ(typed.exitCode, 0) << typed.screen;
    EXPECT_TRUE(contains(typed.screen, "Repeat the new user PIN: "));
    EXPECT_EQ(typed.screen.find("97531"), std::string::npos) << typed.screen;
    EXPECT_EQ(storedPin(image, vcard::layout::userPinReference), "97531");

    const std::string other = directory.file("other.json");
    const Typed mismatch = typeUserPin(other, "97531", "97532");
    EXPECT_EQ(mismatch.exitCode, 2);
    EXPECT_TRUE(contains(mismatch.screen, "entries differ"));
    EXPECT_FALSE(std::filesystem::exists(other));
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
