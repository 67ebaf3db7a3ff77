// A card whose EF(PrKDF) holds entries as real cards write them: list shows
// what it can, one note per entry it leaves out, and the sound key works.
#include "OddCard.hpp"
#include "ToolProcess.hpp"

#include <gtest/gtest.h>

namespace p15tool::test {
namespace {

using OddEntries = InitialisedCard;

TEST_F(OddEntries, ListShowsTheSoundKeyAndNamesEachEntryLeftOut) {
    ASSERT_EQ(
        tool({"keygen", "--bits", "1024", "--label", "Sound", "--pin-env", "USER_PIN"}).exitCode,
        0);
    const p15test::OddEntries odd = p15test::addOddEntries(image, false);

    const ToolResult listed = tool({"--json", "list"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const nlohmann::json objects = listed.json();
    EXPECT_EQ(objects["pins"].size(), 3u);
    ASSERT_EQ(objects["privateKeys"].size(), 1u);
    EXPECT_EQ(objects["privateKeys"][0]["label"], "Sound");
    const std::string undecodable = std::to_string(odd.undecodable);
    EXPECT_EQ(objects["notes"],
              nlohmann::json({"EF(PrKDF) entry at byte " + undecodable +
                                  ": cannot be decoded: ASN.1: unexpected tag at byte " +
                                  std::to_string(odd.undecodable + 2),
                              "EF(PrKDF) entry at byte " + std::to_string(odd.ecKey) +
                                  ": kept, not listed: EC private key"}));
    EXPECT_NE(tool({"list"}).out.find("kept, not listed: EC private key"), std::string::npos);

    const ToolResult signature = tool(
        {"selfsign", "--subject", "CN=odd", "--out", file("cert.pem"), "--pin-env", "USER_PIN"});
    ASSERT_EQ(signature.exitCode, 0) << signature.err;
    EXPECT_NE(openssl("verify -CAfile cert.pem cert.pem").find("cert.pem: OK"), std::string::npos);
}

} // namespace
} // namespace p15tool::test
