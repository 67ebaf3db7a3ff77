// Certificates, data objects and the token information through the plugin,
// the host card layer and the in-process virtual card: what reaches the
// card, what comes back, what a refusal leaves behind, and which commands
// are sent.
#include "AppError.hpp"
#include "PluginOnCard.hpp"

#include "app/SecurityConditions.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <boost/exception/diagnostic_information.hpp>
#include <boost/make_shared.hpp>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

using app::object::ICertificate;
using app::object::IDataObject;
using app::object::IX509Certificate;

mw::ByteBuffer certificate(const std::string& name) {
    std::ifstream file(std::string(P15_CERTS_DIR) + "/" + name, std::ios::binary);
    const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file), {}};
    return mw::ByteBuffer(bytes);
}

bool contains(const mw::ByteBuffer& bytes, const std::string& text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

// The size of the DER value at the start of `bytes`.
std::size_t derSize(const mw::ByteBuffer& bytes) {
    const unsigned char first = bytes.get(1);
    const std::size_t lengthOctets = (first & 0x80) ? first & 0x7F : 0;
    std::size_t length = lengthOctets ? 0 : first;
    for (std::size_t i = 0; i < lengthOctets; ++i) {
        length = (length << 8) | bytes.get(2 + i);
    }
    return 2 + lengthOctets + length;
}

class ValueObjectsOnTheCard : public hosttest::PluginOnCard {
protected:
    const mw::ByteBuffer cdfId{0x44, 0x04};
    const mw::ByteBuffer dodfId{0x44, 0x07};
    const mw::ByteBuffer tokenInfoId{0x50, 0x32};

    static app::AccessControlRules userPinRules() {
        return {app::AccessControlRule(
            app::AccessControlRule::Read | app::AccessControlRule::Update,
            boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{0x01}))};
    }

    boost::shared_ptr<IX509Certificate> certificateAt(std::size_t index) const {
        return boost::dynamic_pointer_cast<IX509Certificate>(
            application_->getCertificates(*channel_).at(index));
    }
    boost::shared_ptr<IDataObject> dataObjectAt(std::size_t index) const {
        return application_->getDataObjects(*channel_).at(index);
    }
};

TEST_P(ValueObjectsOnTheCard, ACertificateIsWrittenReadBackReplacedAndRemoved) {
    const mw::ByteBuffer small = certificate("small.der"), large = certificate("large.der");
    const mw::ByteBuffer emptyCdf = fileContent(cdfId);
    const mw::ByteBuffer valueFile{0x0D, 0x01}; // the first file of objects with rules
    auto made = boost::dynamic_pointer_cast<IX509Certificate>(
        factory_->createCertificate(ICertificate::X509Certificate, userPinRules()));
    made->setLabel("Signer");
    made->setCertificateId(mw::ByteBuffer{0x45, 0x01});
    made->setKeyUsage(ICertificate::Sign | ICertificate::Derive);
    made->setValue(small);
    application_->writeCardObject(*channel_, *made);

    reopen();
    auto listed = certificateAt(0);
    EXPECT_EQ(listed->getLabel().value_or(""), "Signer");
    EXPECT_EQ(listed->getCertificateId(), (mw::ByteBuffer{0x45, 0x01}));
    EXPECT_EQ(listed->getKeyUsage().value_or(0), ICertificate::Sign | ICertificate::Derive);
    EXPECT_TRUE(contains(listed->getSubject().value_or(mw::ByteBuffer()), "p15kit test signer"))
        << "the subject comes from the certificate";
    application_->readCardObject(*channel_, *listed);
    EXPECT_EQ(listed->getValue(), small);
    EXPECT_EQ(fileContent(valueFile), small);
    EXPECT_EQ(commandsOf([&] { application_->readCardObject(*channel_, *listed); }), 0u)
        << "a value read is kept";
    EXPECT_EQ(commandsOf([&] { application_->writeCardObject(*channel_, *listed); }), 0u);
    listed->setLabel("Signer");
    EXPECT_EQ(commandsOf([&] { application_->writeCardObject(*channel_, *listed); }), 0u)
        << "a label set to what it was changes nothing";

    listed->setValue(large);
    application_->writeCardObject(*channel_, *listed);
    reopen();
    listed = certificateAt(0);
    application_->readCardObject(*channel_, *listed);
    EXPECT_EQ(listed->getValue(), large);
    EXPECT_EQ(fileContent(valueFile), large) << "the file is made anew for the larger value";

    application_->deleteCardObject(*channel_, *listed);
    reopen();
    EXPECT_TRUE(application_->getCertificates(*channel_).empty());
    EXPECT_FALSE(exists(valueFile));
    EXPECT_EQ(fileContent(cdfId), emptyCdf);
}

// Values up to 65535 bytes are taken, whole; a larger one is refused before
// the card hears of it.
TEST_P(ValueObjectsOnTheCard, ValuesUpTo65535BytesRoundTripAndLargerOnesAreRefusedFirst) {
    auto data = factory_->createDataObject(IDataObject::OpaqueDataObject, {});
    data->setValue(mw::ByteBuffer(65536));
    EXPECT_EQ(commandsOf([&] {
                  EXPECT_APP_ERROR(application_->writeCardObject(*channel_, *data),
                                   "data object value size exceeds 65535 bytes");
              }),
              0u);

    mw::ByteBuffer largest(65535);
    for (std::size_t i = 0; i < largest.size(); ++i) {
        largest.data()[i] = static_cast<unsigned char>(i * 31 + (i >> 8)); // no two pages alike
    }
    data->setValue(largest);
    application_->writeCardObject(*channel_, *data);
    reopen();
    const auto stored = dataObjectAt(0);
    application_->readCardObject(*channel_, *stored);
    EXPECT_EQ(stored->getValue(), largest);
}

TEST_P(ValueObjectsOnTheCard, ADataObjectWithApplicationNameAndOidRoundTrips) {
    const mw::ByteBuffer oid{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37}; // 1.3.6.1.4.1.311
    auto made = factory_->createDataObject(IDataObject::OpaqueDataObject, {});
    made->setLabel("Container");
    made->setApplicationName("p15kit test");
    made->setApplicationOid(oid);
    made->setValue(mw::ByteBuffer{0x01, 0x02, 0x03});
    application_->writeCardObject(*channel_, *made);

    reopen();
    const auto stored = dataObjectAt(0);
    EXPECT_EQ(stored->getLabel().value_or(""), "Container");
    EXPECT_EQ(stored->getApplicationName().value_or(""), "p15kit test");
    EXPECT_EQ(stored->getApplicationOid().value_or(mw::ByteBuffer()), oid);
    application_->readCardObject(*channel_, *stored);
    EXPECT_EQ(stored->getValue(), (mw::ByteBuffer{0x01, 0x02, 0x03}));
    EXPECT_TRUE(exists(mw::ByteBuffer{0xDF, 0x02, 0x0D, 0x81}))
        << "a data object without rules takes the first file of its own range";
}

TEST_P(ValueObjectsOnTheCard, ATokenLabelWrittenIsInEfTokenInfoAfterReopening) {
    auto info = application_->getApplicationInfo(*channel_);
    const mw::ByteBuffer serial = info->getSerialNumber().value_or(mw::ByteBuffer());
    ASSERT_FALSE(serial.empty());
    EXPECT_EQ(commandsOf([&] { application_->writeCardObject(*channel_, *info); }), 0u);

    info->setSerialNumber(mw::ByteBuffer());
    info->setLabel("cleared serial");
    EXPECT_EQ(commandsOf([&] {
                  EXPECT_APP_ERROR(application_->writeCardObject(*channel_, *info),
                                   "serial number required but not found");
              }),
              0u);
    info->setSerialNumber(mw::ByteBuffer{0x01});
    EXPECT_APP_ERROR(application_->writeCardObject(*channel_, *info),
                     "the serial number of a token cannot be changed");

    info->setSerialNumber(serial);
    info->setLabel("Relabelled token");
    application_->writeCardObject(*channel_, *info);
    reopen();
    info = application_->getApplicationInfo(*channel_);
    EXPECT_EQ(info->getLabel().value_or(""), "Relabelled token");
    EXPECT_EQ(info->getSerialNumber().value_or(mw::ByteBuffer()), serial);
    EXPECT_EQ(info->getManufacturerId().value_or(""), "p15kit");
    EXPECT_EQ(info->getTokenFlags(), app::object::IApplicationInfo::PrnGeneration);
    EXPECT_TRUE(contains(fileContent(tokenInfoId), "Relabelled token"));
}

// Entries of one algorithm for signing (reference 1) and for deciphering
// (reference 2): the list reported, set back, leaves EF(TokenInfo) as it was.
TEST_P(ValueObjectsOnTheCard, AnAlgorithmListSetBackAsReportedLeavesTokenInfoAsItWas) {
    namespace oss = app::pkcs15::oss;
    const mw::ByteBuffer personalised = fileContent(tokenInfoId);
    oss::TokenInfo value;
    oss::decode(personalised.data(), personalised.size(), value);
    oss::AlgorithmInfo decipher = value.supportedAlgorithms->front();
    decipher.reference = 2;
    decipher.supportedOperations.octets = {0x04};
    value.supportedAlgorithms->push_back(decipher);
    files()->select(*channel_, tokenInfoId);
    files()->update(*channel_, 0, mw::ByteBuffer(oss::encode(value)));
    const mw::ByteBuffer twoEntries = fileContent(tokenInfoId);
    reopen();

    auto info = application_->getApplicationInfo(*channel_);
    const std::vector<std::string> reported = info->getSupportedAlgorithms().value();
    ASSERT_EQ(reported, std::vector<std::string>(2, "1.2.840.113549.1.1.1"));
    info->setSupportedAlgorithms(reported);
    application_->writeCardObject(*channel_, *info);
    reopen();
    EXPECT_EQ(application_->getApplicationInfo(*channel_)->getSupportedAlgorithms().value(),
              reported);
    EXPECT_EQ(fileContent(tokenInfoId), twoEntries);
}

// The value's UPDATE BINARY fails after the entry went in: the entry goes
// out again and the file made for the value is deleted.
TEST_P(ValueObjectsOnTheCard, AValueTheCardRefusesLeavesNeitherEntryNorFile) {
    const mw::ByteBuffer emptyDodf = fileContent(dodfId);
    auto data = factory_->createDataObject(IDataObject::OpaqueDataObject, {});
    data->setValue(mw::ByteBuffer{0x01, 0x02});
    // The entry goes in with two UPDATE BINARY (its body, then its first
    // byte); the third is the value's.
    virtualCard_->instrumentation().injectStatusWord(0xD6, 0x6581, 3);
    EXPECT_CARD_ERROR(application_->writeCardObject(*channel_, *data), "Update Binary", 0x6581);
    EXPECT_EQ(fileContent(dodfId), emptyDodf);
    EXPECT_FALSE(exists(mw::ByteBuffer{0xDF, 0x02, 0x0D, 0x81}));
    reopen();
    EXPECT_TRUE(application_->getDataObjects(*channel_).empty());
}

// A removal cut short after its entry went leaves the value file unlisted;
// the next object given that file takes it over.
TEST_P(ValueObjectsOnTheCard, AFileARemovalLeftUnlistedIsTakenOverByTheNextWrite) {
    auto first = factory_->createCertificate(ICertificate::X509Certificate, userPinRules());
    first->setValue(certificate("large.der"));
    application_->writeCardObject(*channel_, *first);
    virtualCard_->instrumentation().injectStatusWord(0xE4, 0x6581, 1);
    EXPECT_CARD_ERROR(application_->deleteCardObject(*channel_, *first), "Delete File", 0x6581);
    ASSERT_TRUE(exists({0x0D, 0x01}));

    const mw::ByteBuffer small = certificate("small.der");
    auto second = factory_->createCertificate(ICertificate::X509Certificate, userPinRules());
    second->setValue(small);
    application_->writeCardObject(*channel_, *second);
    reopen();
    auto listed = certificateAt(0);
    application_->readCardObject(*channel_, *listed);
    EXPECT_EQ(listed->getValue(), small);
    EXPECT_EQ(fileContent({0x0D, 0x01}), small);
}

// A certificate whose entry does not fit is refused before anything is
// written: the entries, the value files and the free file stay as they were.
TEST_P(ValueObjectsOnTheCard, ACertificateIntoAFullCdfLeavesTheCardAsItWas) {
    auto first = factory_->createCertificate(ICertificate::X509Certificate, userPinRules());
    first->setValue(certificate("small.der"));
    application_->writeCardObject(*channel_, *first);
    const std::size_t used = derSize(fileContent(cdfId));
    // An attribute certificate, kept but not listed, takes the room up to 8 bytes.
    const std::size_t filler = fileContent(cdfId).size() - used - 8;
    mw::ByteBuffer attributeCertificate(filler);
    attributeCertificate.data()[0] = 0xA0;
    attributeCertificate.data()[1] = 0x82;
    attributeCertificate.data()[2] = static_cast<unsigned char>((filler - 4) >> 8);
    attributeCertificate.data()[3] = static_cast<unsigned char>(filler - 4);
    files()->select(*channel_, cdfId);
    files()->update(*channel_, used, attributeCertificate);
    reopen();
    const mw::ByteBuffer cdf = fileContent(cdfId), firstValue = fileContent({0x0D, 0x01});

    auto second = factory_->createCertificate(ICertificate::X509Certificate, userPinRules());
    second->setLabel("no room");
    second->setValue(certificate("large.der"));
    EXPECT_APP_ERROR(application_->writeCardObject(*channel_, *second), "EF(CDF) out of memory");
    EXPECT_EQ(fileContent(cdfId), cdf);
    EXPECT_EQ(fileContent({0x0D, 0x01}), firstValue);
    EXPECT_FALSE(exists({0x0D, 0x02}));
    reopen();
    EXPECT_EQ(application_->getCertificates(*channel_).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Transports, ValueObjectsOnTheCard,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
