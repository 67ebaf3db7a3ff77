// Directory files of real cards, put on the virtual card and read back
// through the application and the host card layer: what they list, and that
// what the application does not change stays in the file byte for byte.
#include "AppError.hpp"
#include "CardFixture.hpp"

#include "app/IAccessControlled.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "mw/ByteBuffer.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/optional/optional_io.hpp>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace {

// The bytes of a sample file of tests/data/samples: hex lines, '#' comments.
mw::ByteBuffer loadSample(const std::string& name) {
    std::ifstream file(std::string(P15_SAMPLES_DIR) + "/" + name);
    std::string line, hex;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') {
            hex += line;
        }
    }
    mw::ByteBuffer bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes.data()[i] = static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

// Directory files of real cards put on the card of CardTest, user PIN verified.
class Samples : public hosttest::CardTest {
protected:
    static mw::ByteBuffer fileId(std::uint16_t id) {
        return mw::ByteBuffer{static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(id)};
    }
    // Puts `bytes` in the file, 00 up to its end, opens the application anew
    // and returns what the file holds then.
    mw::ByteBuffer put(std::uint16_t id, const mw::ByteBuffer& bytes) {
        verifyUserPin();
        files()->select(*channel_, fileId(id));
        mw::ByteBuffer content(files()->size(*channel_));
        std::copy(bytes.begin(), bytes.end(), content.begin());
        files()->update(*channel_, 0, content);
        application_ = boost::make_shared<app::pkcs15::P15Application>(
            boost::shared_ptr<const card::ICard>(card_), "test", "");
        return content;
    }
    mw::ByteBuffer put(std::uint16_t id, const std::string& sample) {
        return put(id, loadSample(sample));
    }
    mw::ByteBuffer content(std::uint16_t id) const {
        files()->select(*channel_, fileId(id));
        return files()->read(*channel_, 0, 0);
    }
    // `content` with `from` replaced by `to` at its first place.
    static mw::ByteBuffer replaced(const mw::ByteBuffer& content, const std::string& from,
                                   const std::string& to) {
        const auto at = std::search(content.begin(), content.end(), from.begin(), from.end());
        EXPECT_NE(at, content.end()) << from;
        mw::ByteBuffer result(content);
        std::copy(to.begin(), to.end(), result.begin() + (at - content.begin()));
        return result;
    }

    boost::shared_ptr<app::pkcs15::P15Application> application_;
};

using app::object::IKey;
using app::object::IPin;
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

struct ExpectedKey {
    const char* label;
    std::size_t idLength;
    std::uint16_t usage;
    unsigned char keyReference;
    std::uint16_t modulusLength;
    mw::ByteBuffer path;
};

void expectPrivateKeys(const Application& application, const card::IChannel& channel,
                       const std::vector<ExpectedKey>& expected) {
    const auto keys = application.getPrivateKeys(channel);
    ASSERT_EQ(keys.size(), expected.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        SCOPED_TRACE(expected[i].label);
        const auto& key = dynamic_cast<const app::object::IPrivateRSAKey&>(*keys[i]);
        EXPECT_EQ(key.getLabel().value_or(""), expected[i].label);
        EXPECT_EQ(key.getKeyId().size(), expected[i].idLength);
        EXPECT_EQ(key.getUsage(), expected[i].usage);
        EXPECT_TRUE(key.getNative());
        EXPECT_EQ(key.getKeyReference().keyReference, expected[i].keyReference);
        EXPECT_EQ(key.getModulusLength(), expected[i].modulusLength);
        EXPECT_EQ(key.getKeyValueReference(), expected[i].path);
    }
}

boost::shared_ptr<IPin> pinAt(const Application& application, const card::IChannel& channel,
                              std::size_t index) {
    return boost::dynamic_pointer_cast<IPin>(application.getAuthObjects(channel).at(index));
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
         const auto& first =
             dynamic_cast<const IX509Certificate&>(*application.getCertificates(channel).at(0));
         EXPECT_EQ(first.getCertificateId().size(), 29u);
         EXPECT_TRUE(first.getSerialNumber());
         expectCertificates(
             application, channel,
             {{"CertAutenticacion", {0x60, 0x61, 0x70, 0x01}, 0, 0x0548, true, true},
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
    {"be-eid-virtual_prkdf.hex", 0x4400,
     [](const Application& application, const card::IChannel& channel) {
         const mw::ByteBuffer path{0x3F, 0x00, 0xDF, 0x00};
         expectPrivateKeys(application, channel,
                           {{"Authentication", 1, IKey::Sign, 0x82, 1024, path},
                            {"Signature", 1, IKey::NonRepudiation, 0x83, 1024, path}});
     }},
    {"es-dnie-especimen_prkdf.hex", 0x4400,
     [](const Application& application, const card::IChannel& channel) {
         const auto& signing = dynamic_cast<const app::object::IPrivateRSAKey&>(
             *application.getPrivateKeys(channel).at(1));
         EXPECT_EQ(signing.getLabel().value_or(""), "KprivFirmaDigital");
         EXPECT_EQ(signing.getKeyReference().keyReference, 0x02);
         EXPECT_EQ(signing.getModulusLength(), 2048);
         EXPECT_EQ(signing.getKeyValueReference(), (mw::ByteBuffer{0x3F, 0x11, 0x01, 0x02}));
     }},
    {"es-accv-gyd-smartcafe_prkdf.hex", 0x4400,
     [](const Application& application, const card::IChannel& channel) {
         expectPrivateKeys(
             application, channel,
             {{"FIRMA", 20, 0x1D0, 0x00, 0, {}}, {"CIFRADO", 24, 0x110, 0x01, 2048, {}}});
         EXPECT_TRUE(application.getPrivateKeys(channel).at(1)->getSubjectName());
     }},
    {"es-fnmt-tui_prkdf.hex", 0x4400,
     [](const Application& application, const card::IChannel& channel) {
         expectPrivateKeys(application, channel, {{"Clave privada", 20, 0x0D0, 0x06, 1024, {}}});
     }},
    {"uy-eid-gemalto_pukdf.hex", 0x4401,
     [](const Application& application, const card::IChannel& channel) {
         const auto& key = dynamic_cast<const app::object::IPublicRSAKey&>(
             *application.getPublicKeys(channel).at(0));
         EXPECT_FALSE(key.getNative());
         EXPECT_EQ(key.getKeyReference().keyReference, 0x01);
         EXPECT_EQ(key.getModulusLength(), 2048);
         EXPECT_TRUE(key.getKeyValueReference().empty());
     }},
    // Flags of a non-DER encoding, a path to the PIN's DF.
    {"acos5-64_aodf.hex", 0x4408,
     [](const Application& application, const card::IChannel& channel) {
         const auto pin = pinAt(application, channel, 0);
         EXPECT_EQ(pin->getFlags().value_or(0), 0x03) << "private, modifiable";
         EXPECT_EQ(pin->getPinFlags(),
                   IPin::CaseSensitive | IPin::Local | IPin::Initialized | IPin::NeedsPadding);
         EXPECT_EQ(pin->getPinType(), IPin::AsciiNumeric);
         EXPECT_EQ(pin->getMaxLength().value_or(0), 8);
         ASSERT_TRUE(pin->getPath());
         EXPECT_EQ(pin->getPath()->path, (mw::ByteBuffer{0x3F, 0x00, 0x41, 0x00}));
     }},
    // Rules under "always" and one of an ISO 7816-15 mode, which is not shown.
    {"uy-eid-gemalto_aodf.hex", 0x4408,
     [](const Application& application, const card::IChannel& channel) {
         const auto user = pinAt(application, channel, 0), so = pinAt(application, channel, 1);
         EXPECT_EQ(user->getAuthId(), (mw::ByteBuffer{0xAD, 0x11}));
         EXPECT_EQ(user->getProtectingAuthId().value_or(mw::ByteBuffer()),
                   (mw::ByteBuffer{0xAD, 0x81}));
         EXPECT_EQ(user->getPinFlags(),
                   IPin::Initialized | IPin::NeedsPadding | IPin::ExchangeRefData);
         EXPECT_EQ(user->getMaxLength().value_or(0), 8) << "below the stored length 12, as given";
         EXPECT_EQ(user->getStoredLength(), 12);
         EXPECT_EQ(user->getLastPinChange().value_or(""), "20131011133817Z");
         const auto& rules =
             dynamic_cast<const app::IAccessControlled&>(*user).getAccessControlRules();
         ASSERT_TRUE(rules && rules->size() == 2u);
         EXPECT_EQ((*rules)[0].getAccessMode(), app::AccessControlRule::Execute);
         EXPECT_TRUE(boost::dynamic_pointer_cast<app::AlwaysSecurityCondition>(
             (*rules)[1].getSecurityCondition()));
         EXPECT_EQ(so->getPinFlags() & (IPin::UnblockingPin | IPin::SoPin),
                   IPin::UnblockingPin | IPin::SoPin);
         EXPECT_EQ(so->getPinReference().value_or(0), 0x81);
     }},
};

// What the application does not change stays in the file byte for byte.
TEST_P(Samples, LoadWithTheAttributesTheirCardsGaveThem) {
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.file);
        const mw::ByteBuffer before = put(sample.fileId, sample.file);
        sample.expect(*application_, *channel_);
        EXPECT_EQ(content(sample.fileId), before);
    }
}

// A label changes in its entry alone: keyReference 82 in two octets, an
// ACOS PIN's non-DER flags, rules and lastPinChange stay as the card has them.
TEST_P(Samples, ARelabelledObjectKeepsEverythingElseByteForByte) {
    using Listed = boost::shared_ptr<app::object::ICardObject>;
    const struct {
        const char* file;
        std::uint16_t fileId;
        std::function<Listed(const Application&, const card::IChannel&)> object;
        const char *from, *to;
    } relabels[] = {
        {"be-eid-virtual_prkdf.hex", 0x4400,
         [](const Application& application, const card::IChannel& channel) {
             return Listed(application.getPrivateKeys(channel).at(1));
         },
         "Signature", "Signatura"},
        // Through the directory file's own list, its only owner.
        {"acos5-64_aodf.hex", 0x4408,
         [](const Application& application, const card::IChannel& channel) {
             return Listed(application.getODF()->getAODF()->pins(channel).at(0));
         },
         "User", "Usr2"},
        {"uy-eid-gemalto_aodf.hex", 0x4408,
         [](const Application& application, const card::IChannel& channel) {
             return Listed(application.getODF()->getAODF()->pins(channel).at(1));
         },
         "SO PIN", "SO-PIN"},
    };
    for (const auto& relabel : relabels) {
        SCOPED_TRACE(relabel.file);
        const mw::ByteBuffer before = put(relabel.fileId, relabel.file);
        const Listed listed = relabel.object(*application_, *channel_);
        listed->setLabel(relabel.to);
        application_->writeCardObject(*channel_, *listed);
        EXPECT_EQ(content(relabel.fileId), replaced(before, relabel.from, relabel.to));
    }
}

// The last component of the sample runs one byte past the end its
// SEQUENCE declares.
TEST_P(Samples, ATruncatedTokenInfoIsRefusedWithTheCodecsReason) {
    mw::ByteBuffer truncated = loadSample("sc-hsm-jpm_tokeninfo.hex");
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

INSTANTIATE_TEST_SUITE_P(Transports, Samples, ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
