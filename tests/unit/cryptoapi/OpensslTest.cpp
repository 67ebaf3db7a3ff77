// Cross-checks with an independent implementation, the openssl command line.
#include "TestKey.hpp"

#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/Signature.hpp"

#include <cryptopp/files.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using namespace cryptoapi_test;

// A scratch folder holding the test key for openssl: key.der (PKCS#8) and
// spki.der (the provider's SubjectPublicKeyInfo).
class Openssl : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v openssl >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "the openssl command line tool is not installed";
        }
        char pattern[] = "/tmp/cryptoapi-openssl-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        CryptoPP::FileSink privateKey((dir_ + "/key.der").c_str());
        testKey().DEREncode(privateKey);
        const mw::ByteBuffer spki = publicTestKey()->getEncoded();
        write("spki.der", Bytes(spki.begin(), spki.end()));
    }

    void TearDown() override {
        if (!dir_.empty()) {
            std::filesystem::remove_all(dir_);
        }
    }

    void write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(dir_ + "/" + name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    Bytes read(const std::string& name) const {
        std::ifstream in(dir_ + "/" + name, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // True when openssl, run in the folder, succeeds; its complaints go to
    // the test output.
    bool openssl(const std::string& arguments) const {
        return std::system(("cd '" + dir_ + "' && openssl " + arguments).c_str()) == 0;
    }

private:
    std::string dir_;
};

// openssl signs and the provider verifies; openssl also verifies its own
// signature with the provider's encoding of the public key.
TEST_F(Openssl, SignsWhatTheProviderVerifies) {
    const Bytes message = bytesOf("signed by openssl");
    write("message", message);
    for (const auto& [digest, oid] : {std::pair{"sha1", "1.2.840.113549.1.1.5"},
                                      {"sha256", "1.2.840.113549.1.1.11"},
                                      {"sha384", "1.2.840.113549.1.1.12"},
                                      {"sha512", "1.2.840.113549.1.1.13"}}) {
        const std::string dgst = std::string("dgst -") + digest;
        ASSERT_TRUE(openssl(dgst + " -sign key.der -keyform DER -out sig message"));
        EXPECT_TRUE(
            openssl(dgst + " -verify spki.der -keyform DER -signature sig message >/dev/null"));

        const Bytes signature = read("sig");
        const mw::AutoPtr<cryptoapi::Signature> verifier(cryptoapi::Signature::getInstance(oid));
        verifier->initVerify(*publicTestKey());
        verifier->update(message.data(), message.size());
        EXPECT_TRUE(verifier->verify(signature.data(), signature.size())) << digest;
    }
}

TEST_F(Openssl, DeciphersWhatTheProviderEnciphers) {
    const Bytes plain = bytesOf("a session key, say");
    const mw::AutoPtr<cryptoapi::Cipher> cipher(
        cryptoapi::Cipher::getInstance("1.2.840.113549.1.1.1"));
    cipher->init(cryptoapi::Cipher::ENCRYPT_MODE, *publicTestKey());
    std::size_t length = 0;
    const mw::AutoPtr<unsigned char, mw::ArrayDeallocator> cipherText(
        cipher->doFinal(length, plain.data(), plain.size()));
    write("cipher", Bytes(cipherText.get(), cipherText.get() + length));

    ASSERT_TRUE(openssl("pkeyutl -decrypt -inkey key.der -keyform DER -in cipher -out plain"));
    EXPECT_EQ(read("plain"), plain);
}

} // namespace
