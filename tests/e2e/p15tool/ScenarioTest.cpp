// A key made on the card, enrolled with a certificate it signs itself, data objects beside it.
#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>

namespace p15tool::test {
namespace {

using Scenario = InitialisedCard;

// The status words of READ BINARY, UPDATE BINARY and DELETE FILE on the application's file holding
// `value`, each on a card just reset (no PIN verified).
std::vector<int> answers(const std::string& image, const std::string& value) {
    vcard::CardState state = vcard::CardImage::load(image);
    const auto& files = state.files.selectByPath({0x3F, 0x00, 0x50, 0x15}, true).children;
    const auto held = std::find_if(files.begin(), files.end(), [&](const auto& file) {
        return file->content == vcard::Bytes(value.begin(), value.end());
    });
    if (held == files.end()) {
        return {};
    }
    const std::uint8_t high = (*held)->fid >> 8, low = (*held)->fid & 0xFF;
    std::vector<int> statusWords;
    for (const vcard::Bytes& command : {vcard::Bytes{0x00, 0xB0, 0x00, 0x00, 0x01},
                                        {0x00, 0xD6, 0x00, 0x00, 0x01, 0x00},
                                        {0x00, 0xE4, 0x00, 0x00}}) {
        vcard::VirtualCard card(vcard::CardImage::load(image));
        EXPECT_EQ(card.transmit({0x00, 0xA4, 0x08, 0x0C, 0x04, 0x50, 0x15, high, low}),
                  (vcard::Bytes{0x90, 0x00}));
        const vcard::Bytes answer = card.transmit(command);
        statusWords.push_back(answer[answer.size() - 2] << 8 | answer.back());
    }
    return statusWords;
}

TEST_F(Scenario, AKeyMadeOnTheCardEnrolsSignsAndDeciphers) {
    const ToolResult generated = succeed(
        {"--json", "keygen", "--bits", "2048", "--label", "Demo key", "--pin-env", "USER_PIN"});
    EXPECT_EQ(generated.json()["generated"]["accessFlags"],
              nlohmann::json({"sensitive", "alwaysSensitive", "neverExtractable", "local"}));

    // A UTF-8 subject with an escaped comma, spaces around its parts left out; validity past 2049,
    // so its end is a GeneralizedTime.
    const std::string subject =
        " CN = Zo\xC3\xAB demo , O=Example\\, Inc.,C=DE,emailAddress=z@x.org";
    const std::string shown =
        "subject=CN=Zo\xC3\xAB demo,O=Example, Inc.,C=DE,emailAddress=z@x.org";
    succeed({"selfsign", "--subject", subject, "--days", "14600", "--out", file("cert.pem"),
             "--pin-env", "USER_PIN"});
    succeed({"req", "--subject", subject, "--format", "der", "--out", file("req.der"), "--pin-env",
             "USER_PIN"});
    for (const auto& [command, parts] :
         std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"verify -CAfile cert.pem cert.pem", {"cert.pem: OK"}},
             {"x509 -in cert.pem -noout -text -subject -checkend 0 -nameopt utf8,sep_comma_plus",
              {"Version: 3 (0x2)", "sha256WithRSAEncryption", "CA:TRUE", "will not expire", shown}},
             {"req -inform DER -in req.der -verify -noout -subject -nameopt utf8,sep_comma_plus",
              {"verify OK", shown}}}) {
        const std::string text = openssl(command);
        for (const std::string& part : parts) {
            EXPECT_TRUE(contains(text, part));
        }
    }
    // Both key identifiers hash the RSAPublicKey (from byte 24 of the SubjectPublicKeyInfo), the
    // key's id its modulus (256 bytes from byte 33).
    const auto sha1 = [&](const std::string& bytes) {
        return openssl("x509 -in cert.pem -noout -pubkey | openssl pkey -pubin -outform DER | " +
                       bytes + " | openssl sha1 -r | tr a-f A-F")
            .substr(0, 40);
    };
    const std::string keyIds = openssl("x509 -in cert.pem -noout -ext "
                                       "subjectKeyIdentifier,authorityKeyIdentifier | tr -d :"),
                      keySha1 = sha1("tail -c +25"), id = sha1("tail -c +34 | head -c 256");
    EXPECT_NE(keyIds.find(keySha1), keyIds.rfind(keySha1)) << keyIds << keySha1;

    succeed({"cert", "write", file("cert.pem"), "--pin-env", "USER_PIN"});
    const nlohmann::json objects = tool({"--json", "list"}).json();
    const nlohmann::json& certificate = objects["certificates"].at(0);
    EXPECT_EQ(std::tuple(objects["privateKeys"].at(0)["id"], certificate["id"],
                         certificate["label"], certificate["subjectDer"]),
              std::tuple(id, id, "Demo key", certificate["issuerDer"]));
    EXPECT_EQ(certificate["subject"],
              "emailAddress=z@x.org,C=DE,O=Example\\, Inc.,CN=Zo\xC3\xAB demo");
    EXPECT_EQ("sha256 Fingerprint=" + certificate["sha256Fingerprint"].get<std::string>() + "\n",
              openssl("x509 -in cert.pem -noout -fingerprint -sha256"));
    succeed({"cert", "read", "--format", "der", "--out", file("card.der")});

    // Without --in and --out: stdin in, the signature out on stdout. 245 bytes are the most one
    // 2048-bit PKCS#1 v1.5 block carries.
    writeFile(file("message.txt"), "p15kit was here\n");
    writeFile(file("message.sig"),
              succeed({"sign", "--pin-env", "USER_PIN"}, {}, file("message.txt")).out);
    writeFile(file("secret"), std::string(245, '\xA5'));
    writeFile(file("longer"), std::string(246, '\xA5'));
    succeed({"encrypt", "--in", file("secret"), "--out", file("cryptogram")});
    EXPECT_EQ(tool({"decrypt", "--in", file("cryptogram"), "--pin-env", "USER_PIN"}).out,
              readFile(file("secret")));
    succeed({"data", "write", "-", "--label", "blob", "--app", "demo", "--private", "--pin-env",
             "USER_PIN"},
            {}, file("secret"));
    // clang-format off
    expectEach({{{"verify", "--signature", file("message.sig"), "--in", file("message.txt")}, 0, ""},
                {{"encrypt", "--in", file("longer")}, 1, "RSA PKCS#1 v1.5 enciphers at most 245 bytes"},
                {{"data", "write", file("message.txt"), "--label", "open", "--pin-env", "USER_PIN"}, 0, ""}});
    // clang-format on
    EXPECT_EQ(tool({"--json", "list"}).json()["dataObjects"].at(0)["applicationName"], "demo");
    // Only the user replaces or deletes them, and reads the private one.
    const std::vector<int> readOnly{0x9000, 0x6982, 0x6982};
    EXPECT_EQ(answers(image, readFile(file("card.der"))), readOnly);
    EXPECT_EQ(answers(image, readFile(file("secret"))), std::vector<int>(3, 0x6982));
    EXPECT_EQ(answers(image, readFile(file("message.txt"))), readOnly);

    const ToolResult certDeleted =
        succeed({"--json", "cert", "delete", "--label", "Demo key", "--pin-env", "USER_PIN"});
    EXPECT_EQ(certDeleted.json()["deleted"]["id"], id);
    // clang-format off
    expectEach({{{"cert", "delete", "--pin-env", "USER_PIN"}, 2, "--label"},
                {{"data", "delete", "--label", "blob", "--pin-env", "USER_PIN"}, 0, ""},
                {{"cert", "read"}, 5, ""},
                {{"data", "read", "--label", "blob"}, 5, "blob"}});
    // clang-format on
    const nlohmann::json left = tool({"--json", "list"}).json();
    EXPECT_EQ(std::tuple(left["certificates"].size(), left["dataObjects"].size(),
                         left["privateKeys"].size()),
              std::tuple(0u, 1u, 1u));
    EXPECT_EQ(tool({"--json", "random", "300"}).json()["random"].get<std::string>().size(), 600u);
}

} // namespace
} // namespace p15tool::test
