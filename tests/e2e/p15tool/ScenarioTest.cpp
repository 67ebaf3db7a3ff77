// The user's way through the card: a key made on it, enrolled with a
// certificate it signs itself, then signing, verifying, enciphering and
// deciphering, every result judged by the openssl command line.
#include "ToolProcess.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Hex.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/VirtualCard.hpp"

#include <cryptopp/sha.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

using Scenario = InitialisedCard;

const oss::ObjectValue& valueOf(const oss::CertificateType& entry) {
    return entry.x509CertificateValue.typeAttributes.value;
}
const oss::ObjectValue& valueOf(const oss::DataType& entry) {
    return entry.opaqueDOValue.typeAttributes;
}

// The status words of READ BINARY, UPDATE BINARY and DELETE FILE, each on a
// card just reset (no PIN verified), on the value file of entry `index` of
// the application's directory file 44`fid`.
template <class Entry>
std::vector<int> answers(const std::string& image, std::uint8_t fid, std::size_t index) {
    vcard::CardState state = vcard::CardImage::load(image);
    const vcard::Bytes& content =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, fid}, true).content;
    Entry entry;
    for (std::size_t at = 0, read = 0; read <= index; ++read) {
        at += oss::decode(content.data() + at, content.size() - at, entry);
    }
    const oss::Bytes& path = valueOf(entry).indirectValue.pathValue.path;
    vcard::Bytes select{0x00, 0xA4, 0x08, 0x0C, static_cast<std::uint8_t>(2 + path.size()),
                        0x50, 0x15};
    select.insert(select.end(), path.begin(), path.end());
    std::vector<int> statusWords;
    for (const vcard::Bytes& command :
         {vcard::Bytes{0x00, 0xB0, 0x00, 0x00, 0x01},
          vcard::Bytes{0x00, 0xD6, 0x00, 0x00, 0x01, 0x00}, vcard::Bytes{0x00, 0xE4, 0x00, 0x00}}) {
        vcard::VirtualCard card(vcard::CardImage::load(image));
        EXPECT_EQ(card.transmit(select), (vcard::Bytes{0x90, 0x00}));
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

    // A UTF-8 subject with an escaped comma, spaces around its parts left
    // out; validity past 2049, so its end is a GeneralizedTime.
    const std::string subject =
        " CN = Zo\xC3\xAB demo , O=Example\\, Inc.,C=DE,emailAddress=z@x.org";
    const std::string shown = "CN=Zo\xC3\xAB demo,O=Example, Inc.,C=DE,emailAddress=z@x.org";
    succeed({"selfsign", "--subject", subject, "--days", "14600", "--out", file("cert.pem"),
             "--pin-env", "USER_PIN"});
    EXPECT_TRUE(contains(openssl("verify -CAfile cert.pem cert.pem"), "cert.pem: OK"));
    const std::string text =
        openssl("x509 -in cert.pem -noout -text -subject -checkend 0 -nameopt utf8,sep_comma_plus");
    for (const char* part :
         {"Version: 3 (0x2)", "sha256WithRSAEncryption", "CA:TRUE", "will not expire"}) {
        EXPECT_TRUE(contains(text, part));
    }
    EXPECT_TRUE(contains(text, "subject=" + shown));
    succeed({"req", "--subject", subject, "--format", "der", "--out", file("req.der"), "--pin-env",
             "USER_PIN"});
    const std::string request =
        openssl("req -inform DER -in req.der -verify -noout -subject -nameopt utf8,sep_comma_plus");
    EXPECT_TRUE(contains(request, "verify OK"));
    EXPECT_TRUE(contains(request, "subject=" + shown));
    // Both key identifiers are the SHA-1 of the RSAPublicKey, which starts 24
    // bytes into the 2048-bit key's SubjectPublicKeyInfo.
    std::string keyIds =
        openssl("x509 -in cert.pem -noout -ext subjectKeyIdentifier,authorityKeyIdentifier");
    keyIds.erase(std::remove(keyIds.begin(), keyIds.end(), ':'), keyIds.end());
    std::string keySha1 = openssl("x509 -in cert.pem -noout -pubkey | openssl pkey -pubin "
                                  "-outform DER | tail -c +25 | openssl sha1 -r")
                              .substr(0, 40);
    std::transform(keySha1.begin(), keySha1.end(), keySha1.begin(), ::toupper);
    EXPECT_NE(keyIds.find(keySha1), keyIds.rfind(keySha1)) << keyIds << keySha1;

    // The identifier is the modulus's SHA-1, so a certificate finds its key
    // and its label.
    const std::string modulus = openssl("x509 -in cert.pem -noout -modulus");
    const mw::ByteBuffer modulusBytes = mw::fromHex(modulus.substr(modulus.find('=') + 1));
    mw::ByteBuffer sha1(CryptoPP::SHA1::DIGESTSIZE);
    CryptoPP::SHA1().CalculateDigest(sha1.data(), modulusBytes.data(), modulusBytes.size());
    succeed({"cert", "write", file("cert.pem"), "--pin-env", "USER_PIN"});
    const nlohmann::json objects = tool({"--json", "list"}).json();
    const nlohmann::json& certificate = objects["certificates"].at(0);
    EXPECT_EQ(objects["privateKeys"].at(0)["id"], mw::toHex(sha1));
    EXPECT_EQ(certificate["id"], mw::toHex(sha1));
    EXPECT_EQ(certificate["label"], "Demo key");
    // Names as text (last RDN first), the DER kept for scripts, and openssl's fingerprint.
    EXPECT_EQ(certificate["subject"],
              "emailAddress=z@x.org,C=DE,O=Example\\, Inc.,CN=Zo\xC3\xAB demo");
    EXPECT_EQ(certificate["subjectDer"], certificate["issuerDer"]);
    EXPECT_EQ("sha256 Fingerprint=" + certificate["sha256Fingerprint"].get<std::string>() + "\n",
              openssl("x509 -in cert.pem -noout -fingerprint -sha256"));
    succeed({"cert", "read", "--format", "der", "--out", file("card.der")});
    EXPECT_EQ(openssl("x509 -in card.der -inform DER"), readFile(file("cert.pem")));

    // Without --in and --out: stdin in, the signature out on stdout (other
    // sizes, hashes, changed messages and openssl's judgement: InputOutput).
    writeFile(file("message.txt"), "p15kit was here\n");
    writeFile(file("message.sig"),
              succeed({"sign", "--pin-env", "USER_PIN"}, {}, file("message.txt")).out);
    EXPECT_EQ(succeed({"--json", "verify", "--signature", file("message.sig"), "--in",
                       file("message.txt")})
                  .json()["verified"],
              true);

    // 245 bytes: the most one 2048-bit PKCS#1 v1.5 block carries, one more is
    // refused (openssl's cryptograms: InputOutput).
    writeFile(file("secret"), std::string(245, '\xA5'));
    succeed({"encrypt", "--in", file("secret"), "--out", file("cryptogram")});
    EXPECT_EQ(tool({"decrypt", "--in", file("cryptogram"), "--pin-env", "USER_PIN"}).out,
              readFile(file("secret")));
    writeFile(file("longer"), std::string(246, '\xA5'));
    EXPECT_TRUE(
        exited(tool({"encrypt", "--in", file("longer")}), 1, "enciphers at most 245 bytes"));

    succeed({"data", "write", "-", "--label", "blob", "--app", "demo", "--private", "--pin-env",
             "USER_PIN"},
            {}, file("secret"));
    succeed({"data", "write", file("secret"), "--label", "open", "--pin-env", "USER_PIN"});
    const nlohmann::json withData = tool({"--json", "list"}).json();
    EXPECT_EQ(withData["dataObjects"].at(0)["applicationName"], "demo");
    EXPECT_EQ(withData["certificates"].at(0)["accessControlRules"],
              nlohmann::json::array(
                  {{{"accessMode", {"update"}}, {"condition", "authId 01 (User PIN)"}}}));
    // Any program sharing the card reads the certificate and the public data
    // object; only the user replaces or deletes them, and reads the private one.
    const std::vector<int> readOnly{0x9000, 0x6982, 0x6982};
    EXPECT_EQ(answers<oss::CertificateType>(image, 0x04, 0), readOnly);
    EXPECT_EQ(answers<oss::DataType>(image, 0x07, 0), std::vector<int>(3, 0x6982));
    EXPECT_EQ(answers<oss::DataType>(image, 0x07, 1), readOnly);

    // Deleted objects are gone for the next command; the key stays.
    EXPECT_EQ(tool({"cert", "delete", "--pin-env", "USER_PIN"}).exitCode, 2) << "names none";
    const ToolResult certDeleted =
        succeed({"--json", "cert", "delete", "--label", "Demo key", "--pin-env", "USER_PIN"});
    EXPECT_EQ(certDeleted.json()["deleted"]["id"], mw::toHex(sha1));
    succeed({"data", "delete", "--label", "blob", "--pin-env", "USER_PIN"});
    EXPECT_EQ(tool({"cert", "read"}).exitCode, 5);
    EXPECT_EQ(tool({"data", "read", "--label", "blob"}).exitCode, 5);
    const nlohmann::json left = tool({"--json", "list"}).json();
    EXPECT_TRUE(left["certificates"].empty() && left["dataObjects"].size() == 1) << left;
    EXPECT_EQ(left["privateKeys"].size(), 1u);
    EXPECT_EQ(tool({"--json", "random", "300"}).json()["random"].get<std::string>().size(), 600u);
}

} // namespace
} // namespace p15tool::test
