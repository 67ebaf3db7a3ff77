// Certificates, data objects and the token information through the plugin,
// the host card layer and the in-process virtual card: what reaches the
// card, what comes back, what a refusal leaves behind, and which commands
// are sent.
#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "PluginOnCard.hpp"

#include "app/object/IApplicationInfo.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <algorithm>
#include <vector>

namespace {

using app::object::ICertificate;
using app::object::IDataObject;
using app::object::IX509Certificate;

using support::certificateFile;

bool contains(const mw::ByteBuffer& bytes, const std::string& text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

class ValueObjectsOnTheCard : public hosttest::PluginOnCard {
protected:
    const mw::ByteBuffer cdfId{0x44, 0x04};
    const mw::ByteBuffer dodfId{0x44, 0x07};
    const mw::ByteBuffer tokenInfoId{0x50, 0x32};
    const mw::ByteBuffer dataFile{0xDF, 0x02, 0x0D, 0x81}; // the first data object's file

    // A certificate of `file` whose value needs the user PIN, not on the card yet.
    boost::shared_ptr<IX509Certificate> newCertificate(const char* file = "small.der") const {
        const auto made = boost::dynamic_pointer_cast<IX509Certificate>(
            factory_->createCertificate(ICertificate::X509Certificate, support::userPinRules()));
        made->setValue(certificateFile(file));
        return made;
    }
    boost::shared_ptr<IDataObject> newDataObject(const mw::ByteBuffer& value) const {
        const auto made = factory_->createDataObject(IDataObject::OpaqueDataObject, {});
        made->setValue(value);
        return made;
    }
    boost::shared_ptr<IX509Certificate> certificateAt(std::size_t index) const {
        return boost::dynamic_pointer_cast<IX509Certificate>(
            application_->getCertificates(*channel_).at(index));
    }
    boost::shared_ptr<IDataObject> dataObjectAt(std::size_t index) const {
        return application_->getDataObjects(*channel_).at(index);
    }
};

// Replacing a value is pinned by the torn-write suite's "replace certificate".
TEST_P(ValueObjectsOnTheCard, ACertificateIsWrittenReadBackAndRemoved) {
    const mw::ByteBuffer small = certificateFile("small.der");
    const mw::ByteBuffer emptyCdf = fileContent(cdfId);
    const mw::ByteBuffer valueFile{0x0D, 0x01}; // the first file of objects with rules
    const auto made = newCertificate();
    made->setLabel("Signer");
    made->setCertificateId(mw::ByteBuffer{0x45, 0x01});
    made->setKeyUsage(ICertificate::Sign | ICertificate::Derive);
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

    application_->deleteCardObject(*channel_, *listed);
    reopen();
    EXPECT_TRUE(application_->getCertificates(*channel_).empty());
    EXPECT_FALSE(exists(valueFile));
    EXPECT_EQ(fileContent(cdfId), emptyCdf);
}

// Values up to 65535 bytes are taken, whole, with the entry's names; a
// larger one is refused before the card hears of it.
TEST_P(ValueObjectsOnTheCard, ValuesUpTo65535BytesRoundTripAndLargerOnesAreRefusedFirst) {
    const mw::ByteBuffer oid{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37}; // 1.3.6.1.4.1.311
    const auto data = newDataObject(mw::ByteBuffer(65536));
    data->setLabel("Container");
    data->setApplicationName("p15kit test");
    data->setApplicationOid(oid);
    EXPECT_EQ(commandsOf([&] {
                  EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *data),
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
    EXPECT_EQ(stored->getLabel().value_or(""), "Container");
    EXPECT_EQ(stored->getApplicationName().value_or(""), "p15kit test");
    EXPECT_EQ(stored->getApplicationOid().value_or(mw::ByteBuffer()), oid);
    application_->readCardObject(*channel_, *stored);
    EXPECT_EQ(stored->getValue(), largest);
    EXPECT_TRUE(exists(dataFile)) << "a data object without rules takes the first of its range";
}

TEST_P(ValueObjectsOnTheCard, ATokenLabelWrittenIsInEfTokenInfoAfterReopening) {
    auto info = application_->getApplicationInfo(*channel_);
    const mw::ByteBuffer serial = info->getSerialNumber().value_or(mw::ByteBuffer());
    ASSERT_FALSE(serial.empty());
    EXPECT_EQ(commandsOf([&] { application_->writeCardObject(*channel_, *info); }), 0u);

    // A token without serial number: Samples.LoadWithTheAttributesTheirCardsGaveThem.
    info->setSerialNumber(mw::ByteBuffer{0x01});
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *info),
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
    const auto data = newDataObject({0x01, 0x02});
    // The entry goes in with two UPDATE BINARY (its body, then its first
    // byte); the third is the value's.
    virtualCard_->instrumentation().injectStatusWord(0xD6, 0x6581, 3);
    EXPECT_CARD_ERROR(application_->writeCardObject(*channel_, *data), "Update Binary", 0x6581);
    EXPECT_EQ(fileContent(dodfId), emptyDodf);
    EXPECT_FALSE(exists(dataFile));
    reopen();
    EXPECT_TRUE(application_->getDataObjects(*channel_).empty());
}

// A removal cut short after its entry went leaves the value file unlisted;
// the next object given that file takes it over.
TEST_P(ValueObjectsOnTheCard, AFileARemovalLeftUnlistedIsTakenOverByTheNextWrite) {
    const auto first = newCertificate("large.der");
    application_->writeCardObject(*channel_, *first);
    virtualCard_->instrumentation().injectStatusWord(0xE4, 0x6581, 1);
    EXPECT_CARD_ERROR(application_->deleteCardObject(*channel_, *first), "Delete File", 0x6581);
    ASSERT_TRUE(exists({0x0D, 0x01}));

    application_->writeCardObject(*channel_, *newCertificate());
    reopen();
    const auto listed = certificateAt(0);
    application_->readCardObject(*channel_, *listed);
    EXPECT_EQ(listed->getValue(), certificateFile("small.der"));
    EXPECT_EQ(fileContent({0x0D, 0x01}), certificateFile("small.der"));
}

// An entry that exactly fills EF(CDF) is written; with one byte less room
// it is refused before anything is written: no entry, no value file.
TEST_P(ValueObjectsOnTheCard, AnEntryExactlyFillingEfCdfIsWrittenAndOneByteMoreIsRefused) {
    auto made = newCertificate();
    application_->writeCardObject(*channel_, *made);
    const std::size_t entry = firstEntry(fileContent(cdfId)).size(),
                      size = fileContent(cdfId).size();
    application_->deleteCardObject(*channel_, *made);
    for (const std::size_t room : {entry - 1, entry}) {
        SCOPED_TRACE(room);
        // An attribute certificate, kept but not listed, takes all but `room` bytes.
        const std::size_t filler = size - room - 4;
        mw::ByteBuffer cdf{0xA0, 0x82, static_cast<unsigned char>(filler >> 8),
                           static_cast<unsigned char>(filler)};
        cdf.append(mw::ByteBuffer(filler + room));
        put(cdfId, cdf);
        reopen();
        made = newCertificate();
        if (room < entry) {
            EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *made),
                            "EF(CDF) out of memory");
            EXPECT_EQ(fileContent(cdfId), cdf);
            EXPECT_FALSE(exists({0x0D, 0x01}));
        } else {
            application_->writeCardObject(*channel_, *made);
            reopen();
            EXPECT_EQ(application_->getCertificates(*channel_).size(), 1u);
            EXPECT_NE(fileContent(cdfId).get(size - 1), 0x00) << "the entry ends the file";
        }
    }
}

// One value file named by two entries: its value cannot be replaced, and
// removing one entry keeps the file for the other; the last takes it along.
TEST_P(ValueObjectsOnTheCard, AValueFileTwoEntriesNameGoesWithTheLastOfThem) {
    application_->writeCardObject(*channel_, *newDataObject({0x01, 0x02}));
    const mw::ByteBuffer entry = firstEntry(fileContent(dodfId));
    mw::ByteBuffer twice(entry);
    twice.append(entry);
    put(dodfId, twice);
    reopen();
    auto listed = dataObjectAt(0);
    listed->setValue(mw::ByteBuffer{0x03});
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *listed),
                    "the value's file holds other objects too; it cannot be replaced");
    for (const bool last : {false, true}) {
        reopen();
        application_->deleteCardObject(*channel_, *dataObjectAt(0));
        EXPECT_EQ(exists(dataFile), !last);
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, ValueObjectsOnTheCard,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
