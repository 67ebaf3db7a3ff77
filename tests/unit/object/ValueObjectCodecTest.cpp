// How certificates, data objects and the application info take their
// entries from the card and give them back: the limits of their flag
// words, the forms they refuse, and what a change keeps.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

namespace {

namespace oss = app::pkcs15::oss;
using app::object::ICertificate;
using app::pkcs15::object::P15ApplicationInfo;
using app::pkcs15::object::P15DataObject;
using app::pkcs15::object::P15X509Certificate;

template <class Statement> std::string failureOf(Statement statement) {
    try {
        statement();
    } catch (const app::ApplicationException& e) {
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        return text ? *text : "";
    }
    return "no failure";
}

oss::CertificateType certificateEntry(const oss::Bytes& trustedUsage) {
    oss::CertificateType entry;
    entry.x509CertificateValue.classAttributes.iD = {0x45};
    entry.x509CertificateValue.classAttributes.trustedUsage = trustedUsage;
    entry.x509CertificateValue.typeAttributes.value.indirectValue.pathValue.path = {0x0D, 0x01};
    return entry;
}

P15X509Certificate certificateOf(const oss::CertificateType& entry) {
    return P15X509Certificate(boost::weak_ptr<const app::pkcs15::fs::CDF>(), entry,
                              mw::ByteBuffer(oss::encode(entry)));
}

TEST(ValueObjectCodec, CertificateKeyUsageHasNineBitsAndKeepsTheExtendedUsage) {
    const P15X509Certificate nineBits =
        certificateOf(certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x07, 0xFF, 0x80}));
    EXPECT_EQ(nineBits.getKeyUsage().value_or(0), 0x1FF);
    EXPECT_EQ(failureOf([] {
                  certificateOf(certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x06, 0xFF, 0xC0}));
              }),
              "Certificate::KeyUsageFlags not PKCS#15 conform");

    const oss::Bytes extKeyUsage{0x30, 0x0A, 0x06, 0x08, 0x2B, 0x06,
                                 0x01, 0x05, 0x05, 0x07, 0x03, 0x02};
    oss::Bytes eightBits{0xA1, 0x10, 0x03, 0x02, 0x00, 0xFF};
    eightBits.insert(eightBits.end(), extKeyUsage.begin(), extKeyUsage.end());
    const oss::CertificateType read = certificateEntry(eightBits);
    P15X509Certificate certificate = certificateOf(read);
    EXPECT_EQ(certificate.getKeyUsage().value_or(0), 0x1FE);
    EXPECT_EQ(certificate.encodeCertificateType(certificate.getValueLocation()), read)
        << "an entry nothing was set on is given back as read";

    certificate.setKeyUsage(ICertificate::Encrypt);
    oss::Bytes changed{0xA1, 0x11, 0x03, 0x03, 0x07, 0x80, 0x00};
    changed.insert(changed.end(), extKeyUsage.begin(), extKeyUsage.end());
    EXPECT_EQ(certificate.encodeCertificateType(certificate.getValueLocation())
                  .x509CertificateValue.classAttributes.trustedUsage.value_or(oss::Bytes()),
              changed);
    certificate.setKeyUsage(0x200);
    EXPECT_EQ(failureOf([&] { certificate.encode(); }),
              "Certificate key usage flags not PKCS#15 conform.");
}

TEST(ValueObjectCodec, OnlyOpaqueDataObjectsWithTheirValueInAFileAreTaken) {
    oss::DataType direct;
    direct.opaqueDOValue.typeAttributes.choice = oss::ObjectValue::direct;
    direct.opaqueDOValue.typeAttributes.raw = {0xA0, 0x01, 0x00};
    EXPECT_EQ(failureOf([&] {
                  P15DataObject(boost::weak_ptr<const app::pkcs15::fs::DODF>(), direct,
                                mw::ByteBuffer{0x30});
              }),
              "PKCS#15 DataObject of unknown type found");
}

oss::TokenInfo tokenInfo() {
    oss::TokenInfo value;
    value.serialNumber = oss::Bytes{0x01, 0x02};
    value.tokenflags.bitCount = 4;
    value.tokenflags.octets = {0x20};
    oss::AlgorithmInfo rsa;
    rsa.reference = 7;
    rsa.algorithm = 1;
    rsa.parameters = {0x05, 0x00};
    rsa.supportedOperations.bitCount = 8;
    rsa.supportedOperations.octets = {0x45};
    rsa.algId = oss::oidFromText("1.2.840.113549.1.1.1");
    value.supportedAlgorithms = std::vector<oss::AlgorithmInfo>{rsa};
    return value;
}

P15ApplicationInfo infoOf(const oss::TokenInfo& value) {
    return P15ApplicationInfo(boost::weak_ptr<const app::pkcs15::fs::TokenInfo>(), value,
                              mw::ByteBuffer(oss::encode(value)));
}

TEST(ValueObjectCodec, TokenInfoRefusesWhatItCannotHoldAndKeepsTheAlgorithmsItLists) {
    oss::TokenInfo fiveFlags = tokenInfo();
    fiveFlags.tokenflags.bitCount = 5;
    EXPECT_EQ(failureOf([&] { infoOf(fiveFlags); }), "Token flags not PKCS#15 compatible");
    oss::TokenInfo referencedTime = tokenInfo();
    referencedTime.lastUpdate = oss::LastUpdate();
    referencedTime.lastUpdate->choice = oss::LastUpdate::referencedTime;
    referencedTime.lastUpdate->raw = {0x30, 0x04, 0x04, 0x02, 0x50, 0x33}; // a Path
    EXPECT_EQ(failureOf([&] { infoOf(referencedTime); }),
              "TokenInfo: last update by referenced time not supported.");

    P15ApplicationInfo info = infoOf(tokenInfo());
    EXPECT_EQ(info.getTokenFlags(), app::object::IApplicationInfo::PrnGeneration);
    EXPECT_EQ(info.getLabel().value_or(""), "Arvel PKCS15 Application") << "the default label";
    info.setSupportedAlgorithms({"1.2.840.113549.1.1.11", "1.2.840.113549.1.1.1"});
    const std::vector<oss::AlgorithmInfo> algorithms = *info.encodeTokenInfo().supportedAlgorithms;
    ASSERT_EQ(algorithms.size(), 2u);
    EXPECT_EQ(algorithms[0].reference, 8) << "a new algorithm takes the next reference";
    EXPECT_EQ(algorithms[1], tokenInfo().supportedAlgorithms->front());
    info.setTokenFlags(0x10);
    EXPECT_EQ(failureOf([&] { info.encode(); }), "TokenInfo TokenFlags not PKCS#15 conform.");
}

} // namespace
