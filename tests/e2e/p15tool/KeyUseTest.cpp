// What sign, decrypt and verify accept: a private key only as its usage
// says, a signature only of the modulus length.
#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"

#include <cryptopp/filters.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <gtest/gtest.h>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

int userPinTries(const std::string& image) {
    return vcard::CardImage::load(image).pins.pins().at(0x01).triesLeft;
}

class KeyUse : public ProfiledCard {};

// The key signs a message into a valid signature whose first byte is 00:
// without that byte it does not verify. A key is refused what its usage
// forbids before the PIN is verified, so a wrong PIN costs no try.
TEST_P(KeyUse, SignDecryptAndVerifyTakeOnlyWhatTheKeyAndTheSignatureAllow) {
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
    writeFile(file("key.der"), pkcs1);
    writeFile(file("message"), message);
    writeFile(file("good"), signature);
    writeFile(file("stripped"), signature.substr(1));
    ASSERT_TRUE(exited(
        tool({"key", "import", file("key.der"), "--label", "Signing key", "--pin-env", "USER_PIN"}),
        0));
    EXPECT_TRUE(exited(tool({"verify", "--in", file("message"), "--signature", file("good")}), 0));
    EXPECT_TRUE(exited(tool({"verify", "--in", file("message"), "--signature", file("stripped")}),
                       1, "does not verify"));

    ASSERT_TRUE(exited(tool({"encrypt", "--in", file("message"), "--out", file("cryptogram")}), 0));
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
        // Ten bits of usage (bit 0 the top one) keep the entry's length.
        editFirstEntry<oss::PrivateKeyType>(image, 0x4400, [&](oss::PrivateKeyType& entry) {
            entry.privateRSAKeyValue.classAttributes.usage = {{each.first, each.second}, 10};
        });
        EXPECT_TRUE(exited(run(each.refused, "WRONG"), 3, each.says));
        EXPECT_EQ(userPinTries(image), 3) << "no PIN was tried";
        EXPECT_TRUE(exited(run(each.allowed, "USER_PIN"), 0));
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, KeyUse, p15test::bothProfiles, p15test::profileParamName);

} // namespace
} // namespace p15tool::test
