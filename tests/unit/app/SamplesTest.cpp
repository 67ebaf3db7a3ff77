// Directory files of real cards: every entry decodes and re-encodes byte
// for byte; put on the virtual card and read back through the application
// and the host card layer, they list what their cards gave them, and what the
// application does not change stays in the file byte for byte.
#include "AppCard.hpp"
#include "tests/support/CodecTestUtil.hpp"

#include "app/IAccessControlled.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"

#include <algorithm>
#include <boost/optional/optional_io.hpp>
#include <functional>

namespace {

// Every entry up to the 00/FF padding re-encodes as read; then only padding.
// Returns the number of entries.
template <class T> std::size_t walked(const mw::ByteBuffer& file) {
    std::size_t position = 0, entries = 0;
    for (; position < file.size() && file.get(position) != 0x00 && file.get(position) != 0xFF;
         ++entries) {
        SCOPED_TRACE("entry at " + std::to_string(position));
        T entry;
        const std::size_t used = oss::decode(file.data() + position, file.size() - position, entry);
        EXPECT_EQ(mw::ByteBuffer(oss::encode(entry)), file.get(position, used));
        position += used;
    }
    for (; position < file.size(); ++position) {
        EXPECT_TRUE(file.get(position) == 0x00 || file.get(position) == 0xFF) << position;
    }
    return entries;
}

// Puts a sample in its file, 00 up to the file's end, with the user PIN;
// returns what the file then holds.
mw::ByteBuffer put(const apptest::AppCard& card, const mw::ByteBuffer& file,
                   const std::string& sample) {
    card.open(); // selects the application's DF
    card.verifyPin(0x01, apptest::userPin);
    card.writeFile(file, mw::ByteBuffer(loadSample(sample)));
    return card.readFile(file);
}

using namespace apptest;
using app::object::IKey;
using app::object::IPin;
using app::object::IPrivateRSAKey;
using app::object::IX509Certificate;
using Application = app::pkcs15::P15Application;
using Location = app::pkcs15::object::P15X509Certificate;

template <class Kind> const Kind& as(const boost::shared_ptr<app::object::ICardObject>& object) {
    return dynamic_cast<const Kind&>(*object);
}

using Listed = boost::shared_ptr<app::object::ICardObject>;
using Get = std::function<Listed(const Application&, const card::IChannel&)>;
// The PINs through the directory file's own list, their only owner.
Get pin(std::size_t index) {
    return [index](const Application& application, const card::IChannel& channel) {
        return Listed(application.getODF()->getAODF()->pins(channel).at(index));
    };
}

// One row per way a card writes its entries: paths with index and length,
// long identifiers, absent or present names, keys without path or size.
// A row without a file of the application is walked only. A relabelled
// object changes its label alone: keyReference 82 in two octets, an ACOS
// PIN's non-DER flags, rules and lastPinChange stay as the card has them.
const struct {
    const char* file;
    std::size_t (*walk)(const mw::ByteBuffer&);
    std::size_t entries;
    const mw::ByteBuffer* fileId;
    std::function<void(const Application&, const card::IChannel&)> expect;
    Get relabelled = {};
    std::string from = {}, to = {};
} samples[] = {
    {"es-dnie-especimen_prkdf.hex", walked<oss::PrivateKeyType>, 2, nullptr, {}},
    {"es-fnmt-tui_prkdf.hex", walked<oss::PrivateKeyType>, 1, nullptr, {}},
    {"es-fnmt-tui_cdf.hex", walked<oss::CertificateType>, 1, nullptr, {}},
    // Modifiable, an issuer but no subject; the second's value at an index.
    {"es-accv-gyd-smartcafe_cdf.hex", walked<oss::CertificateType>, 2, &cdfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto listed = application.getCertificates(channel);
         ASSERT_EQ(listed.size(), 2u);
         const auto& first = as<IX509Certificate>(listed[0]);
         EXPECT_EQ(std::make_tuple(first.getFlags().value_or(0), !first.getSubject(),
                                   !!first.getIssuer()),
                   std::make_tuple(std::uint8_t{1}, true, true));
         EXPECT_EQ(
             as<Location>(listed[1]).getValueLocation(),
             (app::pkcs15::object::ValueLocation{{0x3F, 0xFF, 0x43, 0x02, 0x2C, 0x23}, 0, 0x084D}));
     }},
    {"es-dnie-especimen_cdf.hex", walked<oss::CertificateType>, 3, &cdfFile,
     [](const Application& application, const card::IChannel& channel) {
         EXPECT_EQ(application.getCertificates(channel).size(), 3u);
     }},
    {"uy-eid-gemalto_cdf.hex", walked<oss::CertificateType>, 1, &cdfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto listed = application.getCertificates(channel).at(0);
         EXPECT_FALSE(as<app::object::AbstractCardObject>(listed).getProtectingAuthId());
         // A path without index and length names no range to read.
         EXPECT_APP_ERROR(application.readCardObject(channel, *listed), app::InvalidDataException,
                          "path, index and length required but not found");
         // A rule of a 4-bit access mode is not one the application can express.
         listed->setValue(mw::ByteBuffer{0x30, 0x00});
         EXPECT_APP_ERROR(application.writeCardObject(channel, *listed),
                          app::OperationNotSupportedException,
                          "the value's file has access rules this application cannot express; it "
                          "cannot be replaced");
     }},
    {"uy-eid-gemalto_dodf.hex", walked<oss::DataType>, 2, &dodfFile,
     [](const Application& application, const card::IChannel& channel) {
         EXPECT_EQ(application.getDataObjects(channel).size(), 2u);
     }},
    {"aosp-gp-seac_dodf.hex", walked<oss::DataType>, 1, &dodfFile,
     [](const Application& application, const card::IChannel& channel) {
         EXPECT_TRUE(application.getDataObjects(channel).empty())
             << "an OID data object is not listed";
     }},
    {"sc-hsm-jpm_tokeninfo.hex", walked<oss::TokenInfo>, 1, &tokenInfoFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto info = application.getApplicationInfo(channel);
         info->setLabel("JPM");
         EXPECT_APP_ERROR(application.writeCardObject(channel, *info), app::InvalidDataException,
                          "serial number required but not found");
     }},
    // keyReference 82 in two octets, the key's path the DF.
    {"be-eid-virtual_prkdf.hex", walked<oss::PrivateKeyType>, 2, &prkdfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto keys = application.getPrivateKeys(channel);
         ASSERT_EQ(keys.size(), 2u);
         const auto& key = as<IPrivateRSAKey>(keys[0]);
         EXPECT_EQ(std::make_tuple(key.getNative(), key.getKeyReference().keyReference,
                                   key.getModulusLength(), key.getKeyValueReference(),
                                   keys[1]->getUsage()),
                   std::make_tuple(true, std::uint8_t{0x82}, std::uint16_t{1024},
                                   mw::ByteBuffer{0x3F, 0x00, 0xDF, 0x00},
                                   std::uint16_t{IKey::NonRepudiation}));
     },
     [](const Application& application, const card::IChannel& channel) {
         return Listed(application.getPrivateKeys(channel).at(1));
     },
     "Signature", "Signatura"},
    // modulusLength 0, empty paths, usage bits with trailing zeros, a subject.
    {"es-accv-gyd-smartcafe_prkdf.hex", walked<oss::PrivateKeyType>, 2, &prkdfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto keys = application.getPrivateKeys(channel);
         ASSERT_EQ(keys.size(), 2u);
         const auto& second = as<IPrivateRSAKey>(keys[1]);
         EXPECT_EQ(std::make_tuple(as<IPrivateRSAKey>(keys[0]).getModulusLength(),
                                   keys[0]->getUsage(), second.getKeyId().size(),
                                   second.getKeyReference().keyReference,
                                   second.getKeyValueReference(), !!second.getSubjectName()),
                   std::make_tuple(std::uint16_t{0}, std::uint16_t{0x1D0}, std::size_t{24},
                                   std::uint8_t{0x01}, mw::ByteBuffer(), true));
     }},
    {"uy-eid-gemalto_pukdf.hex", walked<oss::PublicKeyType>, 1, &pukdfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto& key = as<app::object::IPublicRSAKey>(application.getPublicKeys(channel).at(0));
         EXPECT_EQ(
             std::make_tuple(key.getNative(), key.getKeyReference().keyReference,
                             key.getModulusLength(), key.getKeyValueReference()),
             std::make_tuple(false, std::uint8_t{0x01}, std::uint16_t{2048}, mw::ByteBuffer()));
     }},
    // Flags of a non-DER encoding: private, modifiable. (Fields the model passes
    // through as the codec reads them, such as paths and dates: p15tool's Decode tests.)
    {"acos5-64_aodf.hex", walked<oss::AuthenticationType>, 1, &aodfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto pin = support::pinAt(application, channel);
         EXPECT_EQ(std::make_tuple(pin->getFlags().value_or(0), pin->getPinFlags(),
                                   pin->getPinType(), pin->getMaxLength().value_or(0)),
                   std::make_tuple(std::uint8_t{0x03},
                                   std::uint16_t{IPin::CaseSensitive | IPin::Local |
                                                 IPin::Initialized | IPin::NeedsPadding},
                                   std::uint32_t{IPin::AsciiNumeric}, std::uint16_t{8}));
     },
     pin(0), "User", "Usr2"},
    // Rules under "always" and one of an ISO 7816-15 mode, which is not shown;
    // a maximum length 8 below the stored length 12, as given.
    {"uy-eid-gemalto_aodf.hex", walked<oss::AuthenticationType>, 2, &aodfFile,
     [](const Application& application, const card::IChannel& channel) {
         const auto user = support::pinAt(application, channel),
                    so = support::pinAt(application, channel, 1);
         EXPECT_EQ(std::make_tuple(user->getAuthId(),
                                   user->getProtectingAuthId().value_or(mw::ByteBuffer()),
                                   user->getPinFlags(), user->getMaxLength().value_or(0),
                                   user->getStoredLength()),
                   std::make_tuple(mw::ByteBuffer{0xAD, 0x11}, mw::ByteBuffer{0xAD, 0x81},
                                   std::uint16_t{IPin::Initialized | IPin::NeedsPadding |
                                                 IPin::ExchangeRefData},
                                   std::uint16_t{8}, std::uint16_t{12}));
         EXPECT_EQ(std::make_tuple(so->getPinFlags() & (IPin::UnblockingPin | IPin::SoPin),
                                   so->getPinReference().value_or(0)),
                   std::make_tuple(IPin::UnblockingPin | IPin::SoPin, std::uint8_t{0x81}));
         const auto& rules =
             dynamic_cast<const app::IAccessControlled&>(*user).getAccessControlRules();
         ASSERT_TRUE(rules && rules->size() == 2u);
         EXPECT_EQ((*rules)[0].getAccessMode(), app::AccessControlRule::Execute);
         EXPECT_TRUE(boost::dynamic_pointer_cast<app::AlwaysSecurityCondition>(
             (*rules)[1].getSecurityCondition()));
     },
     pin(1), "SO PIN", "SO-PIN"},
};

// What the application does not change stays in the file byte for byte.
TEST(Samples, LoadWithTheAttributesTheirCardsGaveThem) {
    AppCard card;
    for (const auto& sample : samples) {
        SCOPED_TRACE(sample.file);
        EXPECT_EQ(sample.walk(mw::ByteBuffer(loadSample(sample.file))), sample.entries);
        if (sample.fileId != nullptr) {
            const mw::ByteBuffer before = put(card, *sample.fileId, sample.file);
            sample.expect(*card.open(), *card.channel);
            EXPECT_EQ(card.readFile(*sample.fileId), before);
        }
    }
}

// The relabel rows: the label changes in its entry alone.
TEST(Samples, ARelabelledObjectKeepsEverythingElseByteForByte) {
    AppCard card;
    for (const auto& sample : samples) {
        if (!sample.relabelled) {
            continue;
        }
        SCOPED_TRACE(sample.file);
        mw::ByteBuffer expected = put(card, *sample.fileId, sample.file);
        const auto at =
            std::search(expected.begin(), expected.end(), sample.from.begin(), sample.from.end());
        ASSERT_NE(at, expected.end());
        std::copy(sample.to.begin(), sample.to.end(), at);
        const auto application = card.open();
        const Listed listed = sample.relabelled(*application, *card.channel);
        listed->setLabel(sample.to);
        application->writeCardObject(*card.channel, *listed);
        EXPECT_EQ(card.readFile(*sample.fileId), expected);
    }
}

} // namespace
