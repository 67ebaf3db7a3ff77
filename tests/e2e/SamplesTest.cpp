// CDF, DODF and TokenInfo files of real cards, put on the virtual card and
// read back through the application and the host card layer.
#include "AppError.hpp"
#include "SampleFile.hpp"

#include "app/object/IApplicationInfo.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"

#include <boost/optional/optional_io.hpp>
#include <functional>
#include <gtest/gtest.h>

namespace {

using app::object::IX509Certificate;
using Application = app::pkcs15::P15Application;

struct ExpectedCertificate {
    const char* label;
    mw::ByteBuffer path;
    boost::optional<std::uint16_t> index, length;
    bool subject, issuer;
};

struct Sample {
    const char* file;
    std::uint16_t fileId;
    std::function<void(const Application&, const card::IChannel&)> expect;
};

void expectCertificates(const Application& application, const card::IChannel& channel,
                        const std::vector<ExpectedCertificate>& expected) {
    const auto listed = application.getCertificates(channel);
    ASSERT_EQ(listed.size(), expected.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
        SCOPED_TRACE(expected[i].label);
        const auto& certificate = dynamic_cast<const IX509Certificate&>(*listed[i]);
        const auto& p15 = dynamic_cast<const app::pkcs15::object::P15X509Certificate&>(*listed[i]);
        EXPECT_EQ(certificate.getLabel().value_or(""), expected[i].label);
        EXPECT_EQ(p15.getValueLocation().path, expected[i].path);
        EXPECT_EQ(p15.getValueLocation().index, expected[i].index);
        EXPECT_EQ(p15.getValueLocation().length, expected[i].length);
        EXPECT_EQ(bool(certificate.getSubject()), expected[i].subject);
        EXPECT_EQ(bool(certificate.getIssuer()), expected[i].issuer);
    }
}

const Sample samples[] = {
    {"es-accv-gyd-smartcafe_cdf.hex", 0x4404,
     [](const Application& application, const card::IChannel& channel) {
         expectCertificates(
             application, channel,
             {{"FIRMA", {0x3F, 0xFF, 0x43, 0x02, 0x16, 0xE6}, 0, 0x084D, false, true},
              {"CIFRADO", {0x3F, 0xFF, 0x43, 0x02, 0x2C, 0x23}, 0, 0x084D, false, true}});
         const auto first = application.getCertificates(channel).at(0);
         EXPECT_EQ(first->getFlags().value_or(0xFF), 0x01) << "modifiable";
     }},
    {"es-dnie-especimen_cdf.hex", 0x4404,
     [](const Application& application, const card::IChannel& channel) {
         const mw::ByteBuffer path{0x60, 0x61, 0x70, 0x01};
         const auto listed = application.getCertificates(channel);
         ASSERT_EQ(listed.size(), 3u);
         EXPECT_EQ(listed[2]->getLabel().value_or(""), "CertCAIntermediaDGP");
         const auto& first = dynamic_cast<const IX509Certificate&>(*listed[0]);
         EXPECT_EQ(first.getCertificateId().size(), 29u);
         EXPECT_TRUE(first.getSubject() && first.getIssuer() && first.getSerialNumber());
         expectCertificates(
             application, channel,
             {{"CertAutenticacion", path, 0, 0x0548, true, true},
              {"CertFirmaDigital", {0x60, 0x61, 0x70, 0x02}, 0, 0x0542, true, true},
              {"CertCAIntermediaDGP", {0x60, 0x61, 0x70, 0x03}, 0, 0x0550, true, true}});
     }},
    {"es-fnmt-tui_cdf.hex", 0x4404,
     [](const Application& application, const card::IChannel& channel) {
         const auto listed = application.getCertificates(channel);
         ASSERT_EQ(listed.size(), 1u);
         const auto& p15 = dynamic_cast<const app::pkcs15::object::P15X509Certificate&>(*listed[0]);
         EXPECT_EQ(p15.getValueLocation().path,
                   (mw::ByteBuffer{0x3F, 0x00, 0x50, 0x00, 0x50, 0x40}));
         EXPECT_EQ(p15.getValueLocation().length, std::uint16_t{0x545});
     }},
    {"uy-eid-gemalto_cdf.hex", 0x4404,
     [](const Application& application, const card::IChannel& channel) {
         const auto listed = application.getCertificates(channel);
         ASSERT_EQ(listed.size(), 1u);
         EXPECT_FALSE(dynamic_cast<const app::object::AbstractCardObject&>(*listed[0])
                          .getProtectingAuthId());
         EXPECT_EQ(dynamic_cast<const IX509Certificate&>(*listed[0]).getCertificateId().size(),
                   20u);
         // A path without index and length names no range to read.
         EXPECT_APP_ERROR(application.readCardObject(channel, *listed[0]),
                          "path, index and length required but not found");
         // A rule of a 4-bit access mode is not one the application can express.
         listed[0]->setValue(mw::ByteBuffer{0x30, 0x00});
         EXPECT_APP_ERROR(application.writeCardObject(channel, *listed[0]),
                          "the value's file has access rules this application cannot express; "
                          "it cannot be replaced");
     }},
    {"uy-eid-gemalto_dodf.hex", 0x4407,
     [](const Application& application, const card::IChannel& channel) {
         const auto listed = application.getDataObjects(channel);
         ASSERT_EQ(listed.size(), 2u);
         EXPECT_EQ(listed[1]->getLabel().value_or(""), "Default Key Container");
         for (const auto& data : listed) {
             EXPECT_EQ(data->getApplicationName().value_or(""), "CSP");
             EXPECT_FALSE(data->getApplicationOid());
         }
     }},
    {"aosp-gp-seac_dodf.hex", 0x4407,
     [](const Application& application, const card::IChannel& channel) {
         EXPECT_TRUE(application.getDataObjects(channel).empty())
             << "an OID data object is not listed";
     }},
    {"sc-hsm-jpm_tokeninfo.hex", 0x5032,
     [](const Application& application, const card::IChannel& channel) {
         const auto info = application.getApplicationInfo(channel);
         EXPECT_EQ(info->getVersion(), 0);
         EXPECT_EQ(info->getLabel().value_or(""), "JPM-HSM");
         EXPECT_EQ(info->getTokenFlags(), app::object::IApplicationInfo::PrnGeneration);
         EXPECT_FALSE(info->getSerialNumber());
         info->setLabel("JPM");
         EXPECT_APP_ERROR(application.writeCardObject(channel, *info),
                          "serial number required but not found");
     }},
};

class ValueObjectSamples : public hosttest::SampleCard {};

// What the application does not change stays in the file byte for byte.
TEST_P(ValueObjectSamples, LoadWithTheAttributesTheirCardsGaveThem) {
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.file);
        const mw::ByteBuffer before = put(sample.fileId, sample.file);
        sample.expect(*application_, *channel_);
        EXPECT_EQ(content(sample.fileId), before);
    }
}

// The last component of the sample runs one byte past the end its
// SEQUENCE declares.
TEST_P(ValueObjectSamples, ATruncatedTokenInfoIsRefusedWithTheCodecsReason) {
    mw::ByteBuffer truncated = hosttest::loadSample("sc-hsm-jpm_tokeninfo.hex");
    truncated.data()[1] = static_cast<unsigned char>(truncated.get(1) - 1);
    put(0x5032, truncated);
    try {
        application_->getApplicationInfo(*channel_);
        ADD_FAILURE() << "a truncated TokenInfo was taken";
    } catch (const app::InvalidDataException& e) {
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        ASSERT_TRUE(text);
        EXPECT_STREQ(*text, "ASN.1: length beyond data");
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, ValueObjectSamples,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
