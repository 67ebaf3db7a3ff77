// The DER the tool builds for req and selfsign, signed here in software in
// place of the card and judged by the openssl command line.
#include "tools/p15tool/Enrolment.hpp"
#include "ToolProcess.hpp"
#include "tools/p15tool/KeyFile.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace p15tool::test {
namespace {

using der::Bytes;

class Enrolment : public ::testing::Test {
protected:
    void SetUp() override { key.GenerateRandomWithKeySize(rng, 2048); }

    enrolment::RsaPublicKey publicKey() const {
        return {bytesOf(key.GetModulus()), bytesOf(key.GetPublicExponent())};
    }
    enrolment::Signer signer() {
        return [this](const Bytes& data) {
            CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer rsa(key);
            Bytes signature(rsa.MaxSignatureLength());
            signature.resize(rsa.SignMessage(rng, data.data(), data.size(), signature.data()));
            return signature;
        };
    }
    std::string writePem(const std::string& name, const Bytes& der, const std::string& label) {
        writeFile(directory.file(name), pem(mw::ByteBuffer(der.data(), der.size()), label));
        return directory.file(name);
    }
    std::string openssl(const std::string& arguments) const {
        return test::openssl(directory, arguments);
    }
    static Bytes bytesOf(const CryptoPP::Integer& value) {
        Bytes bytes(value.MinEncodedSize());
        value.Encode(bytes.data(), bytes.size());
        return bytes;
    }

    CryptoPP::AutoSeededRandomPool rng;
    CryptoPP::InvertibleRSAFunction key;
    TemporaryDirectory directory;
};

// A UTF-8 subject with an escaped comma survives both documents; a serial
// number whose top bit is set keeps its leading zero; the end of validity
// past 2049 is a GeneralizedTime; both key identifiers are the SHA-1 of the
// key's RSAPublicKey, which starts 24 bytes into the 2048-bit key's
// SubjectPublicKeyInfo.
TEST_F(Enrolment, OpensslAcceptsTheRequestAndTheSelfSignedCertificate) {
    const Bytes subject = der::name("CN=Zoë Example, O=Example\\, Inc.,C=DE,emailAddress=z@x.org");
    const std::string shown = "subject=CN=Zoë Example,O=Example, Inc.,C=DE,emailAddress=z@x.org";
    const std::string request =
        writePem("req.pem", enrolment::certificationRequest(subject, publicKey(), signer()),
                 "CERTIFICATE REQUEST");
    const std::string checked =
        openssl("req -in " + request + " -verify -noout -subject -nameopt utf8,sep_comma_plus");
    EXPECT_TRUE(contains(checked, "self-signature verify OK"));
    EXPECT_TRUE(contains(checked, shown));

    const std::time_t now = std::time(nullptr);
    const std::string certificate = writePem(
        "cert.pem",
        enrolment::selfSignedCertificate(subject, publicKey(), {now, now + 40LL * 365 * 86400},
                                         {0x80, 0x01, 0x02}, signer()),
        "CERTIFICATE");
    const std::string text =
        openssl("x509 -in " + certificate + " -noout -text -subject -nameopt utf8,sep_comma_plus");
    for (const char* part : {"Version: 3 (0x2)", "Serial Number: 8388866 (0x800102)",
                             "Signature Algorithm: sha256WithRSAEncryption", "CA:TRUE"}) {
        EXPECT_TRUE(contains(text, part));
    }
    EXPECT_TRUE(contains(text, shown));
    EXPECT_TRUE(contains(openssl("x509 -in " + certificate + " -noout -enddate"), " GMT"));
    EXPECT_TRUE(contains(openssl("verify -CAfile " + certificate + " " + certificate), ": OK"));
    std::string keyIds = openssl("x509 -in " + certificate +
                                 " -noout -ext subjectKeyIdentifier,authorityKeyIdentifier");
    keyIds.erase(std::remove(keyIds.begin(), keyIds.end(), ':'), keyIds.end());
    std::string sha1 = openssl("x509 -in " + certificate + " -noout -pubkey | openssl pkey " +
                               "-pubin -outform DER | tail -c +25 | openssl sha1 -r");
    sha1 = sha1.substr(0, 40);
    std::transform(sha1.begin(), sha1.end(), sha1.begin(), ::toupper);
    ASSERT_NE(keyIds.find(sha1), std::string::npos) << keyIds << sha1;
    EXPECT_NE(keyIds.rfind(sha1), keyIds.find(sha1)) << keyIds << sha1;
}

// A subject must be attribute=value pairs of known types, a country of two
// letters, an e-mail address in ASCII; spaces around the parts do not count.
TEST_F(Enrolment, SubjectsThatAreNoNameAreRefused) {
    for (const char* subject : {"", "CN", "XX=1", "C=Germany", "emailAddress=zoë@x.org", "CN="}) {
        EXPECT_THROW(der::name(subject), std::invalid_argument) << subject;
    }
    EXPECT_EQ(der::name("CN=a\\,b"), der::name("CN = a\\,b "));
}

} // namespace
} // namespace p15tool::test
