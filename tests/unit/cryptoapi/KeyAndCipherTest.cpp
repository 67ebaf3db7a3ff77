// The RSA key factory's checks on card-supplied key material, and PKCS#1
// v1.5 and OAEP enciphering checked by Crypto++'s decryptors.
#include "TestKey.hpp"

#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/RSAPublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"

#include <cryptopp/oaep.h>
#include <cryptopp/osrng.h>
#include <cryptopp/sha.h>

#include <gtest/gtest.h>

namespace {

using namespace cryptoapi_test;
using cryptoapi::Cipher;

// An odd number of exactly the given bits: 1, zeros, 1.
Bytes oddModulus(unsigned int bits) {
    Bytes modulus((bits + 7) / 8, 0x00);
    modulus.front() = static_cast<unsigned char>(1u << ((bits - 1) % 8));
    modulus.back() |= 0x01;
    return modulus;
}

mw::AutoPtr<cryptoapi::PublicKey> generate(const Bytes& modulus, const Bytes& exponent) {
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
    const cryptoapi::RSAPublicKeySpec spec(modulus.data(), modulus.size(), exponent.data(),
                                           exponent.size());
    return mw::AutoPtr<cryptoapi::PublicKey>(factory->generatePublic(spec));
}

// Refused, then taken: the boundary sizes, and leading zeros, which are dropped.
TEST(RsaKeyFactory, RefusesWhatCannotBeAnRsaPublicKeyAndTakesTheBoundaries) {
    const Bytes f4 = {0x01, 0x00, 0x01};
    const Bytes modulus = oddModulus(1024);
    Bytes even = modulus;
    even.back() = 0x00;
    const struct {
        const char* what;
        Bytes modulus;
        Bytes exponent;
    } refused[] = {
        {"empty modulus", {}, f4},
        {"even modulus", even, f4},
        {"511-bit modulus", oddModulus(511), f4},
        {"8193-bit modulus", oddModulus(8193), f4},
        {"one-megabyte modulus", Bytes(1 << 20, 0xFF), f4},
        {"empty exponent", modulus, {}},
        {"exponent 0", modulus, {0x00}},
        {"exponent 1", modulus, {0x00, 0x01}},
        {"even exponent", modulus, {0x01, 0x00, 0x00}},
        {"exponent equal to the modulus", modulus, modulus},
    };
    for (const auto& key : refused) {
        EXPECT_THROW(generate(key.modulus, key.exponent), cryptoapi::InvalidKeySpecException)
            << key.what;
    }
    EXPECT_NO_THROW(generate(oddModulus(512), {0x03}));
    EXPECT_NO_THROW(generate(oddModulus(8192), {0x03}));
    Bytes padded(2 + modulus.size(), 0x00);
    std::copy(modulus.begin(), modulus.end(), padded.begin() + 2);
    const auto key = generate(padded, {0x00, 0x01, 0x00, 0x01});
    const auto& rsaKey = dynamic_cast<const cryptoapi::RSAPublicKey&>(*key);
    EXPECT_EQ(rsaKey.getModulus(), mw::ByteBuffer(modulus.data(), modulus.size()));
    EXPECT_EQ(rsaKey.getPublicExponent(), mw::ByteBuffer({0x01, 0x00, 0x01}));
}

Bytes encipher(Cipher& cipher, const Bytes& plain) {
    std::size_t length = 0;
    const mw::AutoPtr<unsigned char, mw::ArrayDeallocator> out(
        cipher.doFinal(length, plain.data(), plain.size()));
    return Bytes(out.get(), out.get() + length);
}

template <class Scheme> Bytes decipher(const Bytes& cipherText) {
    CryptoPP::AutoSeededRandomPool random;
    const typename CryptoPP::RSAES<Scheme>::Decryptor decryptor(testKey());
    Bytes plain(decryptor.MaxPlaintextLength(cipherText.size()));
    const auto result =
        decryptor.Decrypt(random, cipherText.data(), cipherText.size(), plain.data());
    EXPECT_TRUE(result.isValidCoding);
    plain.resize(result.messageLength);
    return plain;
}

const struct {
    const char* oid;
    std::size_t overhead; // 11, or twice the hash and 2
    Bytes (*decipher)(const Bytes&);
} ciphers[] = {
    {"1.2.840.113549.1.1.1", 11, decipher<CryptoPP::PKCS1v15>},
    {"1.2.840.113549.1.1.7/1.3.14.3.2.26", 42, decipher<CryptoPP::OAEP<CryptoPP::SHA1>>},
    {"1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.1", 66, decipher<CryptoPP::OAEP<CryptoPP::SHA256>>},
};

class RsaCipher : public testing::TestWithParam<std::size_t> {};

// From nothing up to the last byte a block carries (modulus length less the
// overhead); one more byte is refused. Random padding: the same text
// enciphers anew. Deciphering, use before init and a key too short for the
// padding (OAEP-SHA256 needs 66 bytes of a 512-bit key's 64) are refused.
TEST_P(RsaCipher, EnciphersUpToOneBlockForThePrivateKeyToRead) {
    const auto& algorithm = ciphers[GetParam()];
    const mw::AutoPtr<Cipher> cipher(Cipher::getInstance(algorithm.oid));
    EXPECT_THROW(encipher(*cipher, bytesOf("abc")), cryptoapi::IllegalStateException);
    EXPECT_THROW(cipher->init(Cipher::DECRYPT_MODE, *publicTestKey()),
                 cryptoapi::UnsupportedOperationException);
    if (algorithm.overhead > 64) {
        EXPECT_THROW(cipher->init(Cipher::ENCRYPT_MODE, *publicTestKey(512)),
                     cryptoapi::InvalidKeyException);
    }
    cipher->init(Cipher::ENCRYPT_MODE, *publicTestKey());
    const std::size_t blockLength = testKey().GetModulus().ByteCount();
    const std::size_t longest = blockLength - algorithm.overhead;
    EXPECT_EQ(cipher->getMaximumInputLength(), longest);

    for (std::size_t length : {std::size_t{0}, std::size_t{1}, longest}) {
        const Bytes plain(length, 0xA5);
        const Bytes cipherText = encipher(*cipher, plain);
        EXPECT_EQ(cipherText.size(), blockLength);
        EXPECT_EQ(algorithm.decipher(cipherText), plain) << length;
        EXPECT_NE(encipher(*cipher, plain), cipherText);
    }
    EXPECT_THROW(encipher(*cipher, Bytes(longest + 1)), cryptoapi::IllegalBlockSizeException);
}

INSTANTIATE_TEST_SUITE_P(EveryPadding, RsaCipher,
                         testing::Range<std::size_t>(0, std::size(ciphers)));

} // namespace
