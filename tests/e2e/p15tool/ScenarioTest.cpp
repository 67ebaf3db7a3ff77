// The user's way through the card: a key made on it, enrolled with a
// certificate it signs itself, then signing, verifying, enciphering and
// deciphering, every result judged by the openssl command line.
#include "ToolProcess.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <cryptopp/sha.h>
#include <gtest/gtest.h>

#include <cstdlib>

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
    vcard::Bytes select{0x00, 0xA4, 0x08, 0x0C, 0x00, 0x50, 0x15};
    const oss::Bytes& path = valueOf(entry).indirectValue.pathValue.path;
    select.insert(select.end(), path.begin(), path.end());
    select[4] = static_cast<std::uint8_t>(select.size() - 5);
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
    const ToolResult generated = tool(
        {"--json", "keygen", "--bits", "2048", "--label", "Demo key", "--pin-env", "USER_PIN"});
    ASSERT_EQ(generated.exitCode, 0) << generated.err;
    EXPECT_EQ(generated.json()["generated"]["modulusLength"], 2048);
    EXPECT_EQ(generated.json()["generated"]["accessFlags"],
              nlohmann::json({"sensitive", "alwaysSensitive", "neverExtractable", "local"}));

    ASSERT_TRUE(exited(tool({"selfsign", "--subject", "CN=p15kit demo,O=p15kit", "--days", "30",
                             "--out", file("cert.pem"), "--pin-env", "USER_PIN"}),
                       0));
    EXPECT_TRUE(contains(openssl("verify -CAfile cert.pem cert.pem"), "cert.pem: OK"));
    ASSERT_TRUE(exited(tool({"req", "--subject", "CN=p15kit demo", "--format", "der", "--out",
                             file("req.der"), "--pin-env", "USER_PIN"}),
                       0));
    EXPECT_TRUE(contains(openssl("req -inform DER -in req.der -verify -noout"), "verify OK"));

    // The identifier is the modulus's SHA-1, so a certificate finds its key
    // and its label.
    const std::string modulus = openssl("x509 -in cert.pem -noout -modulus");
    const mw::ByteBuffer modulusBytes = mw::fromHex(modulus.substr(modulus.find('=') + 1));
    mw::ByteBuffer sha1(CryptoPP::SHA1::DIGESTSIZE);
    CryptoPP::SHA1().CalculateDigest(sha1.data(), modulusBytes.data(), modulusBytes.size());
    const ToolResult written = tool({"cert", "write", file("cert.pem"), "--pin-env", "USER_PIN"});
    ASSERT_EQ(written.exitCode, 0) << written.err;
    EXPECT_EQ(generated.err + written.err, "") << "progress stays off a pipe";
    const nlohmann::json objects = tool({"--json", "list"}).json();
    const nlohmann::json& certificate = objects["certificates"].at(0);
    EXPECT_EQ(objects["privateKeys"].at(0)["id"], mw::toHex(sha1));
    EXPECT_EQ(certificate["id"], mw::toHex(sha1));
    EXPECT_EQ(certificate["label"], "Demo key");
    // Names as text (last RDN first), the DER kept for scripts, and openssl's fingerprint.
    EXPECT_EQ(certificate["subject"], "O=p15kit,CN=p15kit demo");
    EXPECT_EQ(certificate["subjectDer"], certificate["issuerDer"]);
    EXPECT_EQ("sha256 Fingerprint=" + certificate["sha256Fingerprint"].get<std::string>() + "\n",
              openssl("x509 -in cert.pem -noout -fingerprint -sha256"));
    ASSERT_TRUE(exited(tool({"cert", "read", "--format", "der", "--out", file("card.der")}), 0));
    openssl("x509 -in card.der -inform DER -noout -pubkey -out cert-key.pem");
    EXPECT_EQ(openssl("x509 -in card.der -inform DER"), readFile(file("cert.pem")));

    // Without --in and --out: stdin in, the signature out on stdout; a
    // changed message then fails to verify (other sizes and hashes:
    // InputOutput).
    writeFile(file("message.txt"), "p15kit was here\n");
    const ToolResult piped = tool({"sign", "--pin-env", "USER_PIN"}, {}, file("message.txt"));
    ASSERT_EQ(piped.exitCode, 0) << piped.err;
    writeFile(file("message.sig"), piped.out);
    EXPECT_TRUE(contains(openssl("dgst -sha256 -verify cert-key.pem -signature message.sig "
                                 "message.txt"),
                         "Verified OK"));
    writeFile(file("message.txt"), "p15kit was not here\n");
    const ToolResult forged =
        tool({"--json", "verify", "--signature", file("message.sig"), "--in", file("message.txt")});
    EXPECT_TRUE(exited(forged, 1, "does not verify"));
    EXPECT_EQ(forged.json()["verified"], false);

    // 245 bytes: the most one 2048-bit PKCS#1 v1.5 block carries, one more is
    // refused; openssl's cryptogram and the tool's own decipher alike.
    writeFile(file("secret"), std::string(245, '\xA5'));
    openssl("pkeyutl -encrypt -pubin -inkey cert-key.pem -in secret -out cryptogram");
    ASSERT_TRUE(exited(tool({"encrypt", "--in", file("secret"), "--out", file("ours")}), 0));
    for (const char* cryptogram : {"cryptogram", "ours"}) {
        EXPECT_EQ(tool({"decrypt", "--in", file(cryptogram), "--pin-env", "USER_PIN"}).out,
                  readFile(file("secret")))
            << cryptogram;
    }
    writeFile(file("longer"), std::string(246, '\xA5'));
    EXPECT_TRUE(
        exited(tool({"encrypt", "--in", file("longer")}), 1, "enciphers at most 245 bytes"));

    for (const char* label : {"blob", "open"}) {
        std::vector<std::string> write{"data",  "write", "-",         "--label", label,
                                       "--app", "demo",  "--pin-env", "USER_PIN"};
        if (label == std::string("blob")) {
            write.push_back("--private");
        }
        ASSERT_TRUE(exited(tool(write, {}, file("secret")), 0));
    }
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
        tool({"--json", "cert", "delete", "--label", "Demo key", "--pin-env", "USER_PIN"});
    ASSERT_TRUE(exited(certDeleted, 0));
    EXPECT_EQ(certDeleted.json()["deleted"]["id"], mw::toHex(sha1));
    ASSERT_TRUE(exited(tool({"data", "delete", "--label", "blob", "--pin-env", "USER_PIN"}), 0));
    EXPECT_EQ(tool({"cert", "read"}).exitCode, 5);
    EXPECT_EQ(tool({"data", "read", "--label", "blob"}).exitCode, 5);
    const nlohmann::json left = tool({"--json", "list"}).json();
    EXPECT_TRUE(left["certificates"].empty() && left["dataObjects"].size() == 1) << left;
    EXPECT_EQ(left["privateKeys"].size(), 1u);
    EXPECT_EQ(tool({"--json", "random", "300"}).json()["random"].get<std::string>().size(), 600u);
}

} // namespace
} // namespace p15tool::test
