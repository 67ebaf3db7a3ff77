// pin and list on a virtual card image of either profile.
#include "OddCard.hpp"
#include "ToolProcess.hpp"
#include "mw/Hex.hpp"

namespace p15tool::test {
namespace {

class PinCommands : public ProfiledCard {
protected:
    static Arguments verify(const char* pin) { return {"pin", "verify", "--pin-env", pin}; }
    nlohmann::json userStatus() const {
        return succeed({"--json", "pin", "status", "--label", "User PIN"}).json()["pins"].at(0);
    }
    // A card of the iso profile tells neither a PIN's tries nor its state.
    nlohmann::json tries(int left) const { return iso() ? nlohmann::json() : nlohmann::json(left); }
    std::string state(const char* known) const { return iso() ? "unknown" : known; }
    std::string wrong(const std::string& pin, int left) const {
        return "wrong " + pin +
               (iso() ? " (the card does not say how many tries are left)"
                      : ": " + std::to_string(left) + (left == 1 ? " try left" : " tries left"));
    }
};

// The right PIN restores the tries and is forgotten at release; the PUK frees a blocked PIN, with
// its value or a new one. --verbose never shows a PIN, in text or in hex (the trace file:
// PinTrace.NamesThePinOperationsButNeverTheirValues).
TEST_P(PinCommands, APinBlocksAfterItsTriesAndThePukFreesIt) {
    const ToolResult wrongPin = tool({"--verbose", "pin", "verify", "--pin-env", "NEW"});
    EXPECT_EQ(wrongPin.exitCode, 4);
    EXPECT_TRUE(contains(wrongPin.err, "card: SELECT 00 A4 "));
    EXPECT_TRUE(contains(wrongPin.err, "card: VERIFY 00 20 00 01 [8 bytes hidden] -> " +
                                           std::string(iso() ? "6300" : "63C2") + "\n"));
    EXPECT_TRUE(contains(wrongPin.err, "p15tool: " + wrong("User PIN", 2)));
    EXPECT_EQ(userStatus()["triesLeft"], tries(2));
    const ToolResult right = succeed({"--json", "pin", "verify", "-v", "--pin-env", "USER_PIN"});
    EXPECT_TRUE(contains(right.err, "card: VERIFY 00 20 00 01 [8 bytes hidden] -> 9000\n"));
    for (const char* secret : {"8642", "38363432", "2468", "32343638"}) {
        EXPECT_EQ((wrongPin.err + right.err).find(secret), std::string::npos) << secret;
    }
    EXPECT_EQ(std::pair(right.json()["label"], right.json()["state"]),
              std::pair(nlohmann::json("User PIN"), nlohmann::json("verified")));
    const ToolResult status = succeed({"--json", "pin", "status", "--label", "User PIN"});
    EXPECT_EQ(status.err, "") << "quiet without --verbose";
    const nlohmann::json released = status.json()["pins"].at(0);
    EXPECT_EQ(std::pair(released.value("triesLeft", nlohmann::json()), released["state"]),
              std::pair(tries(3), nlohmann::json(state("not verified"))));
    const std::string blocked = "User PIN blocked: unblock it with its PUK";
    expectEach({{verify("WRONG"), 4, wrong("User PIN", 2)},
                {verify("WRONG"), 4, wrong("User PIN", 1)},
                {verify("WRONG"), 4, iso() ? blocked : "now blocked: unblock it with its PUK"},
                {verify("USER_PIN"), 4, blocked}});
    EXPECT_EQ(userStatus()["state"], state("blocked"));
    // clang-format off
    expectEach({{{"pin", "unblock", "--puk-env", "WRONG"}, 4, wrong("PUK", 4)},
                {{"pin", "unblock", "--puk-env", "PUK"}, 0, ""},
                {verify("USER_PIN"), 0, ""},
                {{"pin", "unblock", "--puk-env", "PUK", "--new-pin-env", "NEW"}, 0, ""},
                {verify("USER_PIN"), 4, wrong("User PIN", 2)},
                {{"pin", "change", "--label", "User PIN", "--pin-env", "NEW", "--new-pin-env", "USER_PIN"}, 0, ""},
                {verify("NEW"), 4, wrong("User PIN", 2)},
                {verify("USER_PIN"), 0, ""},
                {{"pin", "verify", "--ref", "0x03", "--pin-env", "SO_PIN"}, 0, ""},
                {{"pin", "status", "--label", "Nobody"}, 5, "no PIN labelled \"Nobody\""},
                {{"pin", "verify", "--ref", "9", "--pin-env", "USER_PIN"}, 5, "9"},
                {{"pin", "status", "--label", "PUK", "--ref", "2"}, 2, "--ref"}});
    // clang-format on
}

// A value the PIN's entry rules out never reaches the card, wherever a PIN is read; the shortest
// and the longest work.
TEST_P(PinCommands, AValueThePinCannotTakeCostsNoTry) {
    const Environment values{{"EMPTY", ""},         {"NINE", "123456789"}, {"LETTERS", "12ab"},
                             {"EIGHT", "12345678"}, {"FOUR", "1357"},      {"SHORT", "12"}};
    const nlohmann::json before = tool({"--json", "pin", "status"}).json();
    const std::string digits = "User PIN takes 4 to 8 digits";
    // clang-format off
    expectEach({{verify("EMPTY"), 2, "the " + digits + "; the one given has 0; nothing was sent to the card"},
                {verify("NINE"), 2, "the " + digits + "; the one given has 9"},
                {{"pin", "change", "--pin-env", "USER_PIN", "--new-pin-env", "SHORT"}, 2, "the new " + digits + "; the one given has 2"},
                {{"pin", "change", "--pin-env", "USER_PIN", "--new-pin-env", "LETTERS"}, 2, "the new User PIN takes digits only"},
                {{"pin", "change", "--pin-env", "LETTERS", "--new-pin-env", "NEW"}, 2, "the User PIN takes digits only"},
                {{"pin", "unblock", "--puk-env", "EMPTY"}, 2, "the PUK takes 4 to 8 digits; the one given has 0"},
                {{"pin", "unblock", "--puk-env", "PUK", "--new-pin-env", "NINE"}, 2, "the new " + digits},
                {{"keygen", "--label", "K", "--pin-env", "EMPTY"}, 2, "the " + digits}}, values);
    // clang-format on
    EXPECT_EQ(tool({"--json", "pin", "status"}).json(), before) << "no try spent";

    for (const auto& [from, to] : {std::pair{"USER_PIN", "EIGHT"}, {"EIGHT", "FOUR"}}) {
        SCOPED_TRACE(to);
        succeed({"pin", "change", "--pin-env", from, "--new-pin-env", to}, values);
        EXPECT_EQ(tool(verify(to), values).exitCode, 0);
    }
}

namespace oss = app::pkcs15::oss;

// The PINs first, then the keys; a condition the application cannot express as its raw bytes.
TEST_P(PinCommands, ListShowsThePinsWithTheirRulesAndTheKeysBesideThem) {
    const nlohmann::json listed = tool({"--json", "list"}).json();
    ASSERT_EQ(listed["pins"].size(), 3u);
    const nlohmann::json& user = listed["pins"][0];
    // The SO PIN's entry names no PIN that unblocks it.
    EXPECT_EQ(std::tuple(user["maxLength"], user["unblockedBy"],
                         user.value("triesLeft", nlohmann::json()),
                         listed["pins"][2].contains("unblockedBy")),
              std::tuple(nlohmann::json(8), nlohmann::json("PUK"), tries(3), false));

    succeed({"keygen", "--bits", "1024", "--label", "Authentication", "--pin-env", "USER_PIN"});
    // Read and delete (a mode beyond PKCS#15's) need the PUK or the SO PIN, and A5 03 80 01 07.
    editFirstEntry<oss::AuthenticationType>(image, 0x4408, [](oss::AuthenticationType& pin) {
        const mw::ByteBuffer der = mw::fromHex("301303020490A10DA206040102040103A503800107");
        auto& rules = pin.pinValue.commonObjectAttributes.accessControlRules;
        rules.emplace(1);
        oss::decode(der.data(), der.size(), rules->at(0));
    });
    editFirstEntry<oss::PrivateKeyType>(image, 0x4400, [](oss::PrivateKeyType& key) {
        key.privateRSAKeyValue.classAttributes.keyReference = 0;
    });
    const ToolResult withKeys = succeed({"list"});
    EXPECT_EQ(withKeys.out.rfind("pins:\n", 0), 0u) << "the PINs are still listed first";
    EXPECT_TRUE(contains(withKeys.out, "privateKeys:\n  -\n    label          Authentication\n"));
    const std::string condition =
        "((authId 02 (PUK) or authId 03 (SO PIN)) and unknown A503800107)";
    EXPECT_TRUE(contains(withKeys.out, "condition   " + condition));
    EXPECT_EQ(withKeys.out.find("notes"), std::string::npos) << withKeys.out;

    // One note per entry left out (the sound key at work:
    // ModuleTest.OddEntriesLeaveTheSoundKeyUsable).
    const p15test::OddEntries odd = p15test::addOddEntries(image, false);
    const nlohmann::json objects = tool({"--json", "list"}).json();
    EXPECT_EQ(std::tuple(objects["privateKeys"].size(), objects["privateKeys"].at(0)["label"],
                         objects["privateKeys"][0]["keyReference"]),
              std::tuple(std::size_t{1}, nlohmann::json("Authentication"), 0));
    EXPECT_EQ(
        objects["pins"][0]["accessControlRules"],
        nlohmann::json::array({{{"accessMode", {"read", "delete"}}, {"condition", condition}}}));
    EXPECT_EQ(objects["notes"],
              nlohmann::json({"EF(PrKDF) entry at byte " + std::to_string(odd.undecodable) +
                                  ": cannot be decoded: ASN.1: unexpected tag at byte " +
                                  std::to_string(odd.undecodable + 2),
                              "EF(PrKDF) entry at byte " + std::to_string(odd.ecKey) +
                                  ": kept, not listed: EC private key"}));
    EXPECT_TRUE(contains(tool({"list"}).out, "kept, not listed: EC private key"));
}

INSTANTIATE_TEST_SUITE_P(Profiles, PinCommands, p15test::bothProfiles, p15test::profileParamName);

} // namespace
} // namespace p15tool::test
