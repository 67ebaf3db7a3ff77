// Known answers for every digest, and null for every unknown lookup.
#include "TestKey.hpp"

#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/MessageDigest.hpp"
#include "cryptoapi/Provider.hpp"
#include "cryptoapi/Signature.hpp"

#include <gtest/gtest.h>

namespace {

using namespace cryptoapi_test;
using cryptoapi::MessageDigest;

struct KnownAnswer {
    const char* oid;
    const char* digestOfAbc;
};

// The "abc" vectors of RFC 1319, RFC 1321, the RIPEMD authors, FIPS 180-2
// and its SHA-224 change notice.
const KnownAnswer knownAnswers[] = {
    {"1.2.840.113549.2.2", "da853b0d3f88d99b30283a69e6ded6bb"},
    {"1.2.840.113549.2.5", "900150983cd24fb0d6963f7d28e17f72"},
    {"1.3.36.3.2.2", "c14a12199c66e4ba84636b0f69144c77"},
    {"1.3.36.3.2.1", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
    {"1.3.14.3.2.26", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {"2.16.840.1.101.3.4.2.4", "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
    {"2.16.840.1.101.3.4.2.1", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"2.16.840.1.101.3.4.2.2", "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded163"
                               "1a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
    {"2.16.840.1.101.3.4.2.3", "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                               "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
};

class Digest : public testing::TestWithParam<KnownAnswer> {};

Bytes finish(MessageDigest& digest, const Bytes& last) {
    std::size_t length = 0;
    const mw::AutoPtr<unsigned char, mw::ArrayDeallocator> hash(
        digest.digest(length, last.data(), last.size()));
    return Bytes(hash.get(), hash.get() + length);
}

// In one call, in pieces, and after a reset that drops what came before: a
// digest that kept any state from an earlier use would differ.
TEST_P(Digest, HashesAbcWhicheverWayItIsFed) {
    const Bytes expected = fromHex(GetParam().digestOfAbc);
    const mw::AutoPtr<MessageDigest> digest(MessageDigest::getInstance(GetParam().oid));
    EXPECT_EQ(digest->getDigestLength(), expected.size());
    EXPECT_EQ(finish(*digest, bytesOf("abc")), expected);

    digest->update(bytesOf("ab").data(), 2);
    EXPECT_EQ(finish(*digest, bytesOf("c")), expected);

    digest->update(bytesOf("xyz").data(), 3);
    digest->reset();
    EXPECT_EQ(finish(*digest, bytesOf("abc")), expected);
}

INSTANTIATE_TEST_SUITE_P(EveryAlgorithm, Digest, testing::ValuesIn(knownAnswers));

TEST(Lookup, UnknownNamesAndForeignProvidersYieldNull) {
    const std::string sha256 = "2.16.840.1.101.3.4.2.1";
    EXPECT_EQ(MessageDigest::getInstance("SHA-256"), nullptr);
    EXPECT_EQ(MessageDigest::getInstance(sha256 + ".0"), nullptr);
    EXPECT_EQ(MessageDigest::getInstance(sha256, "another provider"), nullptr);
    EXPECT_EQ(cryptoapi::Signature::getInstance(sha256), nullptr);
    EXPECT_EQ(cryptoapi::Cipher::getInstance("1.2.840.113549.1.1.11"), nullptr);
    EXPECT_EQ(cryptoapi::KeyFactory::getInstance("1.2.840.10045.2.1"), nullptr);
    EXPECT_NE(mw::AutoPtr<MessageDigest>(MessageDigest::getInstance(sha256, "")).get(), nullptr);
    EXPECT_NE(
        mw::AutoPtr<MessageDigest>(MessageDigest::getInstance(sha256, cryptoapi::providerName))
            .get(),
        nullptr);
}

} // namespace
