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
namespace fs = std::filesystem;

class Openssl : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v openssl >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "the openssl command line tool is not installed";
        }
        char pattern[] = "/tmp/cryptoapi-openssl-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        CryptoPP::FileSink privateKey(path("key.der").c_str());
        testKey().DEREncode(privateKey); // PKCS#8 PrivateKeyInfo
        write("spki.der", publicTestKey()->getEncoded());
    }

    void TearDown() override {
        if (!dir_.empty()) {
            fs::remove_all(dir_);
        }
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    void write(const std::string& name, const mw::ByteBuffer& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    Bytes read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // Runs openssl in the test's folder; true on success. Its complaints go to
    // the test output.
    bool openssl(const std::string& arguments) const {
        const std::string command = "cd '" + dir_.string() + "' && openssl " + arguments;
        return std::system(command.c_str()) == 0;
    }

private:
    fs::path dir_;
};

// openssl signs; the provider verifies. openssl in turn verifies its own
// signature with the provider's SubjectPublicKeyInfo of the key.
TEST_F(Openssl, SignsWhatTheProviderVerifies) {
    const struct {
        const char* digest;
        const char* oid;
    } algorithms[] = {{"sha1", "1.2.840.113549.1.1.5"},
                      {"sha256", "1.2.840.113549.1.1.11"},
                      {"sha384", "1.2.840.113549.1.1.12"},
                      {"sha512", "1.2.840.113549.1.1.13"}};
    const mw::ByteBuffer message({'o', 'p', 'e', 'n', 's', 's', 'l'});
    write("message", message);
    for (const auto& algorithm : algorithms) {
        const std::string digest = algorithm.digest;
        ASSERT_TRUE(openssl("dgst -" + digest + " -sign key.der -keyform DER -out sig message"));
        EXPECT_TRUE(openssl("dgst -" + digest +
                            " -verify spki.der -keyform DER -signature sig message >/dev/null"))
            << digest;

        const Bytes signature = read("sig");
        const mw::AutoPtr<cryptoapi::Signature> verifier(
            cryptoapi::Signature::getInstance(algorithm.oid));
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
    write("cipher", mw::ByteBuffer(cipherText.get(), length));

    ASSERT_TRUE(openssl("pkeyutl -decrypt -inkey key.der -keyform DER -in cipher -out plain"));
    EXPECT_EQ(read("plain"), plain);
}

} // namespace
