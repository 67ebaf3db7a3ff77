// RSA PKCS#1 v1.5 and PSS verification of signatures made by Crypto++'s
// signer, and of PSS encodings altered and signed with the private key.
#include "TestKey.hpp"

#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/Signature.hpp"

#define CRYPTOPP_ENABLE_NAMESPACE_WEAK 1
#include <cryptopp/md2.h>
#include <cryptopp/md5.h>
#include <cryptopp/osrng.h>
#include <cryptopp/pkcspad.h>
#include <cryptopp/pssr.h>
#include <cryptopp/ripemd.h>
#include <cryptopp/sha.h>

#include <gtest/gtest.h>

// Crypto++ has no DigestInfo for RIPEMD-128; this one is written out from
// its OID 1.3.36.3.2.2, independently of the provider's own encoding.
namespace CryptoPP {
template <>
const byte PKCS_DigestDecoration<RIPEMD128>::decoration[] = {
    0x30, 0x1D, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x24, 0x03, 0x02, 0x02, 0x05, 0x00, 0x04, 0x10};
template <>
const unsigned int
    PKCS_DigestDecoration<RIPEMD128>::length = sizeof(PKCS_DigestDecoration<RIPEMD128>::decoration);
} // namespace CryptoPP

namespace {

using namespace cryptoapi_test;
using cryptoapi::Signature;

template <class Standard, class Hash>
Bytes sign(const CryptoPP::InvertibleRSAFunction& key, const Bytes& message) {
    CryptoPP::AutoSeededRandomPool random;
    const typename CryptoPP::RSASS<Standard, Hash>::Signer signer(key);
    Bytes signature(signer.MaxSignatureLength());
    signature.resize(signer.SignMessage(random, message.data(), message.size(), signature.data()));
    return signature;
}

template <class Hash> Bytes signWith(const Bytes& message) {
    return sign<CryptoPP::PKCS1v15, Hash>(testKey(), message);
}

struct Algorithm {
    const char* oid;
    Bytes (*sign)(const Bytes&);
};

const Algorithm algorithms[] = {
    {"1.2.840.113549.1.1.2", signWith<CryptoPP::Weak::MD2>},
    {"1.2.840.113549.1.1.4", signWith<CryptoPP::Weak::MD5>},
    {"1.3.36.3.3.1.3", signWith<CryptoPP::RIPEMD128>},
    {"1.3.36.3.3.1.2", signWith<CryptoPP::RIPEMD160>},
    {"1.2.840.113549.1.1.5", signWith<CryptoPP::SHA1>},
    {"1.2.840.113549.1.1.14", signWith<CryptoPP::SHA224>},
    {"1.2.840.113549.1.1.11", signWith<CryptoPP::SHA256>},
    {"1.2.840.113549.1.1.12", signWith<CryptoPP::SHA384>},
    {"1.2.840.113549.1.1.13", signWith<CryptoPP::SHA512>},
};

mw::AutoPtr<Signature> verifier(const std::string& oid, unsigned int keyBits = 1024) {
    mw::AutoPtr<Signature> signature(Signature::getInstance(oid));
    signature->initVerify(*publicTestKey(keyBits));
    return signature;
}

// The message goes in two pieces, as a streaming caller would pass it.
bool verifies(Signature& object, const Bytes& message, const Bytes& signature) {
    const std::size_t half = message.size() / 2;
    object.update(message.data(), half);
    object.update(message.data() + half, message.size() - half);
    return object.verify(signature.data(), signature.size());
}

Bytes flipped(Bytes bytes, std::size_t index, unsigned char bits = 0x01) {
    bytes.at(index) ^= bits;
    return bytes;
}

class SignatureAlgorithm : public testing::TestWithParam<std::size_t> {};

// One object verifies in turn: a good signature, a flipped bit in it, the
// good one again (so nothing of the failed attempt lingers), a flipped bit
// in the message. The next algorithm of the table, whose hash differs,
// rejects the good signature.
TEST_P(SignatureAlgorithm, AcceptsGoodSignaturesOnlyUnderTheirOwnHash) {
    const Algorithm& algorithm = algorithms[GetParam()];
    const Bytes message = bytesOf("a message signed by the card");
    const Bytes good = algorithm.sign(message);

    const auto signature = verifier(algorithm.oid);
    EXPECT_TRUE(verifies(*signature, message, good));
    EXPECT_FALSE(verifies(*signature, message, flipped(good, good.size() - 1)));
    EXPECT_TRUE(verifies(*signature, message, good));
    EXPECT_FALSE(verifies(*signature, flipped(message, 0), good));
    // Data fed before initVerify is dropped by it.
    signature->update(message.data(), message.size());
    signature->initVerify(*publicTestKey());
    EXPECT_TRUE(verifies(*signature, message, good));

    const Algorithm& other = algorithms[(GetParam() + 1) % std::size(algorithms)];
    EXPECT_FALSE(verifies(*verifier(other.oid), message, good));
}

INSTANTIATE_TEST_SUITE_P(EveryHash, SignatureAlgorithm,
                         testing::Range<std::size_t>(0, std::size(algorithms)));

// rsaEncryption hashes nothing: the data is compared as given, so only the
// full DigestInfo (written out here for SHA-256 of "abc") verifies.
TEST(RsaEncryptionSignature, ComparesTheDataAsGiven) {
    const Bytes good = signWith<CryptoPP::SHA256>(bytesOf("abc"));
    const Bytes hash = fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    Bytes digestInfo = fromHex("3031300d060960864801650304020105000420");
    digestInfo.insert(digestInfo.end(), hash.begin(), hash.end());

    const auto signature = verifier("1.2.840.113549.1.1.1");
    EXPECT_TRUE(verifies(*signature, digestInfo, good));
    EXPECT_FALSE(verifies(*signature, hash, good));
    signature->update(hash.data(), hash.size()); // dropped by initVerify
    signature->initVerify(*publicTestKey());
    EXPECT_TRUE(verifies(*signature, digestInfo, good));
    // Data longer than any block of the key: false, and nothing kept of it.
    EXPECT_FALSE(verifies(*signature, Bytes(1000, 0xFF), good));
    EXPECT_TRUE(verifies(*signature, digestInfo, good));
}

CryptoPP::Integer valueOf(const Bytes& bytes) {
    return CryptoPP::Integer(bytes.data(), bytes.size());
}

Bytes encoded(const CryptoPP::Integer& value, std::size_t length) {
    Bytes bytes(length);
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

Bytes plusModulus(const Bytes& signature, const CryptoPP::InvertibleRSAFunction& key) {
    return encoded(valueOf(signature) + key.GetModulus(), signature.size());
}

// Crypto++'s signature of a message verifies on the message's hash only.
// Its block (EM, after a 00 under 1041 bits) altered and signed with the
// private key, as by a hostile signer, fails: the trailer BC, the 01 made 03,
// the byte before the 01 (a padding zero, or with SHA-512 under 1041 bits
// the top byte, above emBits). H and the salt stay whole: only each one's own
// check can refuse it.
template <class Hash> void checkPss(const std::string& hashOid, unsigned int keyBits) {
    SCOPED_TRACE(hashOid + " under " + std::to_string(keyBits) + " bits");
    const CryptoPP::InvertibleRSAFunction& key = testKey(keyBits);
    const std::size_t k = key.GetModulus().ByteCount(), separator = k - 2 * Hash::DIGESTSIZE - 2;
    const Bytes message = bytesOf("a message hashed by the caller");
    Bytes hash(Hash::DIGESTSIZE), good, block;
    Hash().CalculateDigest(hash.data(), message.data(), message.size());
    const auto signature = verifier("1.2.840.113549.1.1.10/" + hashOid, keyBits);
    // Fresh salts: about half need the unmasked DB's leftmost bit cleared.
    // The top byte altered must stay below the modulus.
    for (int salt = 0; salt < 8 || valueOf(flipped(block, separator - 1)) >= key.GetModulus();
         ++salt) {
        ASSERT_LT(salt, 2000);
        good = sign<CryptoPP::PSS, Hash>(key, message);
        EXPECT_TRUE(verifies(*signature, hash, good));
        block = encoded(key.ApplyFunction(valueOf(good)), k);
    }
    for (const auto& [index, bits] : {std::pair<std::size_t, unsigned char>{k - 1, 0x01},
                                      {separator, 0x02},
                                      {separator - 1, 0x01}}) {
        CryptoPP::AutoSeededRandomPool random;
        const Bytes forged =
            encoded(key.CalculateInverse(random, valueOf(flipped(block, index, bits))), k);
        EXPECT_FALSE(verifies(*signature, hash, forged)) << index;
    }
    EXPECT_FALSE(verifies(*signature, flipped(hash, 0), good));
    hash.push_back(0x00);
    EXPECT_FALSE(verifies(*signature, hash, good));
}

// SHA-512 under 1041 bits leaves no zero padding before the 01.
TEST(PssSignature, AcceptsTheHashItWasMadeForAndNoAlteredEncoding) {
    checkPss<CryptoPP::SHA256>("2.16.840.1.101.3.4.2.1", 1024);
    checkPss<CryptoPP::SHA256>("2.16.840.1.101.3.4.2.1", 1041);
    checkPss<CryptoPP::SHA384>("2.16.840.1.101.3.4.2.2", 1024);
    checkPss<CryptoPP::SHA512>("2.16.840.1.101.3.4.2.3", 1041);
}

// A signature is exactly as long as the modulus: the same value without its
// leading zero byte or with one more does not verify, nor does a value at
// or above the modulus, the good one plus the modulus included. Other signatures a hostile card
// might return are false too, never an exception; an object used before initVerify throws.
TEST(MalformedSignature, DoesNotVerify) {
    const Bytes modulus = plusModulus(Bytes(testKey().GetModulus().ByteCount()), testKey());
    Bytes message, good;
    // A sum that overflows the block wraps below the modulus: try another.
    for (int attempt = 0;
         good.empty() || good.front() != 0x00 || plusModulus(good, testKey()) < modulus;
         ++attempt) {
        ASSERT_LT(attempt, 10000) << "one signature in 256 starts with 00";
        message = bytesOf("message " + std::to_string(attempt));
        good = signWith<CryptoPP::SHA256>(message);
    }
    Bytes zeroFirst(good.size() + 1);
    std::copy(good.begin(), good.end(), zeroFirst.begin() + 1);
    const Bytes stripped(good.begin() + 1, good.end());

    const auto sha256 = verifier("1.2.840.113549.1.1.11");
    EXPECT_TRUE(verifies(*sha256, message, good));
    // good + n is good to the public operation: only the range check refuses it.
    for (const Bytes& signature :
         {Bytes{}, Bytes{0x01}, stripped, zeroFirst, modulus, plusModulus(good, testKey()),
          Bytes(good.size(), 0xFF), Bytes(good.size(), 0x00)}) {
        EXPECT_FALSE(verifies(*sha256, message, signature)) << signature.size() << " bytes";
    }
    const mw::AutoPtr<Signature> uninitialised(Signature::getInstance("1.2.840.113549.1.1.5"));
    EXPECT_THROW(uninitialised->update(message.data(), message.size()),
                 cryptoapi::IllegalStateException);
}

} // namespace
