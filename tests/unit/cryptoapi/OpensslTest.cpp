// Cross-checks with an independent implementation, the openssl command line.
#include "OpensslFolder.hpp"
#include "TestKey.hpp"

#include "cryptoapi/Signature.hpp"

#include <cryptopp/files.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace cryptoapi_test;

// A scratch folder holding the test key for openssl: key.der (PKCS#8) and
// spki.der (the provider's SubjectPublicKeyInfo).
class Openssl : public testing::Test {
protected:
    void SetUp() override {
        if (!hosttest::OpensslFolder::available()) {
            GTEST_SKIP() << "the openssl command line tool is not installed";
        }
        folder_ = std::make_unique<hosttest::OpensslFolder>();
        CryptoPP::FileSink privateKey(folder_->path("key.der").c_str());
        testKey().DEREncode(privateKey);
        folder_->write("spki.der", publicTestKey()->getEncoded());
    }

    std::unique_ptr<hosttest::OpensslFolder> folder_;
};

// openssl signs and the provider verifies; openssl also verifies its own
// signature with the provider's encoding of the public key.
TEST_F(Openssl, SignsWhatTheProviderVerifies) {
    const Bytes message = bytesOf("signed by openssl");
    folder_->write("message", message);
    for (const auto& [digest, oid] : {std::pair{"sha1", "1.2.840.113549.1.1.5"},
                                      {"sha256", "1.2.840.113549.1.1.11"},
                                      {"sha384", "1.2.840.113549.1.1.12"},
                                      {"sha512", "1.2.840.113549.1.1.13"}}) {
        const std::string dgst = std::string("dgst -") + digest;
        ASSERT_TRUE(folder_->run(dgst + " -sign key.der -keyform DER -out sig message"));
        EXPECT_TRUE(folder_->run(
            dgst + " -verify spki.der -keyform DER -signature sig message >/dev/null"));

        const Bytes signature = folder_->read("sig");
        const mw::AutoPtr<cryptoapi::Signature> verifier(cryptoapi::Signature::getInstance(oid));
        verifier->initVerify(*publicTestKey());
        verifier->update(message.data(), message.size());
        EXPECT_TRUE(verifier->verify(signature.data(), signature.size())) << digest;
    }
}

} // namespace
