// What sign, decrypt and verify accept: a private key only as its usage
// says, a signature only of the modulus length.
#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"

#include <cryptopp/filters.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <gtest/gtest.h>

#include <tuple>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

int userPinTries(const std::string& image) {
    return vcard::CardImage::load(image).pins.pins().at(0x01).triesLeft;
}

class KeyUse : public ProfiledCard {};

// A signature verifies only at exactly the modulus's length and below the
// modulus: the valid one less its leading 00 byte, with a second one, or
// with the modulus added (the same value modulo n, so it would verify
// unchecked) is refused. A key is refused what its usage forbids before the
// PIN is verified, so a wrong PIN costs no try.
TEST_P(KeyUse, SignDecryptAndVerifyTakeOnlyWhatTheKeyAndTheSignatureAllow) {
    CryptoPP::AutoSeededRandomPool random;
    CryptoPP::InvertibleRSAFunction key;
    std::string message, signature, pkcs1;
    for (int attempt = 0;
         message.empty() || signature.front() != '\0' || key.GetModulus().GetByte(127) == 0xFF;
         ++attempt) {
        ASSERT_LT(attempt, 10000) << "one signature in 256 starts with 00";
        if (attempt % 64 == 0) {
            key.GenerateRandomWithKeySize(random, 1024);
        }
        const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(key);
        signature.assign(signer.MaxSignatureLength(), '\0');
        message = "message " + std::to_string(attempt);
        signer.SignMessage(random, reinterpret_cast<const CryptoPP::byte*>(message.data()),
                           message.size(), reinterpret_cast<CryptoPP::byte*>(signature.data()));
    }
    CryptoPP::StringSink sink(pkcs1);
    key.DEREncodePrivateKey(sink);
    writeFile(file("key.der"), pkcs1);
    writeFile(file("message"), message);
    const CryptoPP::Integer beyond =
        CryptoPP::Integer(reinterpret_cast<const CryptoPP::byte*>(signature.data()),
                          signature.size()) +
        key.GetModulus();
    std::string beyondBytes(signature.size(), '\0');
    beyond.Encode(reinterpret_cast<CryptoPP::byte*>(beyondBytes.data()), beyondBytes.size());
    ASSERT_TRUE(exited(
        tool({"key", "import", file("key.der"), "--label", "Signing key", "--pin-env", "USER_PIN"}),
        0));
    for (const auto& [name, value, code] : {std::tuple{"good", signature, 0},
                                            {"stripped", signature.substr(1), 1},
                                            {"padded", '\0' + signature, 1},
                                            {"beyond", beyondBytes, 1}}) {
        SCOPED_TRACE(name);
        writeFile(file(name), value);
        const ToolResult verified =
            tool({"verify", "--in", file("message"), "--signature", file(name)});
        EXPECT_TRUE(
            exited(verified, code,
                   code ? "the signature in " + file(name) + " does not verify with \"Signing key\""
                        : ""));
    }

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
