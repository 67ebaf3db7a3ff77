// Which names the provider answers. Each digest's value and its feeding in
// pieces are pinned by the signature tests, which verify signatures of an
// independent signer under every hash, one object after another.
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

const std::string sha256 = "2.16.840.1.101.3.4.2.1";

TEST(Lookup, UnknownNamesAndForeignProvidersYieldNull) {
    EXPECT_EQ(MessageDigest::getInstance("SHA-256"), nullptr);
    EXPECT_EQ(MessageDigest::getInstance(sha256 + ".0"), nullptr);
    EXPECT_EQ(MessageDigest::getInstance(sha256, "another provider"), nullptr);
    EXPECT_EQ(cryptoapi::Signature::getInstance(sha256), nullptr);
    EXPECT_EQ(cryptoapi::Cipher::getInstance("1.2.840.113549.1.1.11"), nullptr);
    EXPECT_EQ(cryptoapi::KeyFactory::getInstance("1.2.840.10045.2.1"), nullptr);
    // The bare PSS and OAEP OIDs, and hashes they are not offered with.
    for (const char* unknown :
         {"1.2.840.113549.1.1.10", "1.2.840.113549.1.1.10/1.3.14.3.2.26", "1.2.840.113549.1.1.7",
          "1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.2"}) {
        EXPECT_EQ(cryptoapi::Signature::getInstance(unknown), nullptr) << unknown;
        EXPECT_EQ(cryptoapi::Cipher::getInstance(unknown), nullptr) << unknown;
    }
    EXPECT_NE(
        mw::AutoPtr<MessageDigest>(MessageDigest::getInstance(sha256, cryptoapi::providerName))
            .get(),
        nullptr);
}

} // namespace
