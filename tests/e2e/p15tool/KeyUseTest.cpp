// What sign, decrypt and verify accept of a key and a signature: a private
// key only as its usage says, a signature only of the modulus length.
#include "ToolProcess.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/queue.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <gtest/gtest.h>

namespace p15tool::test {
namespace {

namespace oss = app::pkcs15::oss;

class KeyUse : public InitialisedCard {
protected:
    // Rewrites the usage of the first private key listed on the card
    // (PKCS#15 bits, bit 0 the top one of the first octet).
    void setUsage(std::uint8_t first, std::uint8_t second) const {
        vcard::CardState state = vcard::CardImage::load(image);
        vcard::Bytes& prkdf =
            state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, 0x00}, true).content;
        oss::PrivateKeyType key;
        const std::size_t length = oss::decode(prkdf.data(), prkdf.size(), key);
        key.privateRSAKeyValue.classAttributes.usage = {{first, second}, 10};
        const vcard::Bytes entry = oss::encode(key);
        ASSERT_EQ(entry.size(), length) << "a 10-bit usage keeps its length";
        std::copy(entry.begin(), entry.end(), prkdf.begin());
        vcard::CardImage::store(image, vcard::CardImage::serialise(state));
    }
    // The tries left of every PIN on the card.
    std::vector<int> triesLeft() const {
        const vcard::CardState state = vcard::CardImage::load(image);
        std::vector<int> tries;
        for (const auto& [reference, pin] : state.pins.pins()) {
            tries.push_back(pin.triesLeft);
        }
        return tries;
    }
};

// A refused operation ends before the PIN is verified: a wrong PIN costs no
// try. Signing keys sign, deciphering keys decipher, and nothing else.
TEST_F(KeyUse, SignAndDecryptTakeAKeyOnlyAsItsUsageSays) {
    openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa.pem");
    ASSERT_EQ(
        tool({"key", "import", file("rsa.pem"), "--label", "Signing key", "--pin-env", "USER_PIN"})
            .exitCode,
        0);
    writeFile(file("secret"), "a secret");
    writeFile(file("message"), "a message");
    ASSERT_EQ(tool({"encrypt", "--in", file("secret"), "--out", file("cryptogram")}).exitCode, 0);
    const std::vector<int> triesBefore = triesLeft();

    setUsage(0x20, 0x40); // sign, nonRepudiation
    const ToolResult decrypt = tool({"decrypt", "--in", file("cryptogram"), "--pin-env", "WRONG"});
    EXPECT_EQ(decrypt.exitCode, 3);
    EXPECT_NE(decrypt.err.find("\"Signing key\" may only sign (usage: sign, nonRepudiation); "
                               "it cannot decrypt"),
              std::string::npos)
        << decrypt.err;
    EXPECT_EQ(triesLeft(), triesBefore) << "no PIN was tried";
    EXPECT_EQ(tool({"sign", "--in", file("message"), "--out", file("sig"), "--pin-env", "USER_PIN"})
                  .exitCode,
              0);

    setUsage(0x44, 0x00); // decrypt, unwrap
    const ToolResult sign = tool({"sign", "--in", file("message"), "--pin-env", "WRONG"});
    EXPECT_EQ(sign.exitCode, 3);
    EXPECT_NE(sign.err.find("may only decrypt and unwrap keys (usage: decrypt, unwrap); it "
                            "cannot sign"),
              std::string::npos)
        << sign.err;
    EXPECT_EQ(triesLeft(), triesBefore);
    const ToolResult plain = tool({"decrypt", "--in", file("cryptogram"), "--pin-env", "USER_PIN"});
    EXPECT_EQ(plain.exitCode, 0) << plain.err;
    EXPECT_EQ(plain.out, "a secret");
}

// A valid signature whose first byte is 00 verifies only with that byte.
TEST_F(KeyUse, VerifyTakesOnlyASignatureOfTheModulusLength) {
    CryptoPP::AutoSeededRandomPool random;
    CryptoPP::InvertibleRSAFunction key;
    key.GenerateRandomWithKeySize(random, 1024);
    const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(key);
    std::string message, signature(signer.MaxSignatureLength(), '\0');
    for (int attempt = 0; message.empty() || signature.front() != '\0'; ++attempt) {
        ASSERT_LT(attempt, 10000) << "one signature in 256 starts with 00";
        message = "message " + std::to_string(attempt);
        signer.SignMessage(random, reinterpret_cast<const CryptoPP::byte*>(message.data()),
                           message.size(), reinterpret_cast<CryptoPP::byte*>(signature.data()));
    }
    CryptoPP::ByteQueue der;
    key.DEREncodePrivateKey(der);
    std::string pkcs1(der.MaxRetrievable(), '\0');
    der.Get(reinterpret_cast<CryptoPP::byte*>(pkcs1.data()), pkcs1.size());
    writeFile(file("key.der"), pkcs1);
    ASSERT_EQ(tool({"key", "import", file("key.der"), "--pin-env", "USER_PIN"}).exitCode, 0);
    writeFile(file("message"), message);
    writeFile(file("good"), signature);
    writeFile(file("stripped"), signature.substr(1));

    EXPECT_EQ(tool({"verify", "--in", file("message"), "--signature", file("good")}).exitCode, 0);
    const ToolResult stripped =
        tool({"verify", "--in", file("message"), "--signature", file("stripped")});
    EXPECT_EQ(stripped.exitCode, 1);
    EXPECT_NE(stripped.err.find("does not verify"), std::string::npos) << stripped.err;
}

} // namespace
} // namespace p15tool::test
