// What sign, decrypt and verify accept: a private key only as its usage
// says, a signature only of the modulus length.
#include "ToolProcess.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <cryptopp/filters.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <gtest/gtest.h>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

// Rewrites the usage (PKCS#15 bits, bit 0 the top one) of the first private
// key listed in `image`; ten bits keep the entry's length.
void setUsage(const std::string& image, std::uint8_t first, std::uint8_t second) {
    vcard::CardState state = vcard::CardImage::load(image);
    vcard::Bytes& prkdf =
        state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, 0x00}, true).content;
    oss::PrivateKeyType key;
    oss::decode(prkdf.data(), prkdf.size(), key);
    key.privateRSAKeyValue.classAttributes.usage = {{first, second}, 10};
    const vcard::Bytes entry = oss::encode(key);
    std::copy(entry.begin(), entry.end(), prkdf.begin());
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
}

int userPinTries(const std::string& image) {
    const vcard::CardState state = vcard::CardImage::load(image);
    return state.pins.pins().at(0x01).triesLeft;
}

class KeyUse : public InitialisedCard {};

// The key signs a message into a valid signature whose first byte is 00:
// without that byte it does not verify. A key is refused what its usage
// forbids before the PIN is verified, so a wrong PIN costs no try.
TEST_F(KeyUse, SignDecryptAndVerifyTakeOnlyWhatTheKeyAndTheSignatureAllow) {
    CryptoPP::AutoSeededRandomPool random;
    CryptoPP::InvertibleRSAFunction key;
    key.GenerateRandomWithKeySize(random, 1024);
    const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(key);
    std::string message, signature(signer.MaxSignatureLength(), '\0'), pkcs1;
    for (int attempt = 0; message.empty() || signature.front() != '\0'; ++attempt) {
        ASSERT_LT(attempt, 10000) << "one signature in 256 starts with 00";
        message = "message " + std::to_string(attempt);
        signer.SignMessage(random, reinterpret_cast<const CryptoPP::byte*>(message.data()),
                           message.size(), reinterpret_cast<CryptoPP::byte*>(signature.data()));
    }
    CryptoPP::StringSink sink(pkcs1);
    key.DEREncodePrivateKey(sink);
    for (const auto& [name, content] : {std::pair{"key.der", pkcs1},
                                        {"message", message},
                                        {"good", signature},
                                        {"stripped", signature.substr(1)}}) {
        writeFile(file(name), content);
    }
    ASSERT_EQ(
        tool({"key", "import", file("key.der"), "--label", "Signing key", "--pin-env", "USER_PIN"})
            .exitCode,
        0);
    EXPECT_EQ(tool({"verify", "--in", file("message"), "--signature", file("good")}).exitCode, 0);
    const ToolResult stripped =
        tool({"verify", "--in", file("message"), "--signature", file("stripped")});
    EXPECT_EQ(stripped.exitCode, 1);
    EXPECT_NE(stripped.err.find("does not verify"), std::string::npos) << stripped.err;

    ASSERT_EQ(tool({"encrypt", "--in", file("message"), "--out", file("cryptogram")}).exitCode, 0);
    const auto run = [&](const std::string& command, const char* pin) {
        return tool({command, "--in", file(command == "sign" ? "message" : "cryptogram"),
                     "--pin-env", pin});
    };
    struct Case {
        std::uint8_t first, second;
        const char *refused, *allowed, *says;
    };
    for (const Case& each :
         {Case{0x20, 0x40, "decrypt", "sign",
               "\"Signing key\" may only sign (usage: sign, nonRepudiation); it cannot decrypt"},
          Case{0x44, 0x00, "sign", "decrypt",
               "may only decrypt and unwrap keys (usage: decrypt, unwrap); it cannot sign"}}) {
        setUsage(image, each.first, each.second);
        const ToolResult refused = run(each.refused, "WRONG");
        EXPECT_EQ(refused.exitCode, 3);
        EXPECT_NE(refused.err.find(each.says), std::string::npos) << refused.err;
        EXPECT_EQ(userPinTries(image), 3) << "no PIN was tried";
        EXPECT_EQ(run(each.allowed, "USER_PIN").exitCode, 0);
    }
}

} // namespace
} // namespace p15tool::test
