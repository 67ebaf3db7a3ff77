// PrKDF and PuKDF files of real cards, put on the virtual card and read back
// through the application and the host card layer.
#include "SampleFile.hpp"

#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/pkcs15/P15Application.hpp"

#include <gtest/gtest.h>

namespace {

using app::object::IKey;

struct ExpectedKey {
    const char* label;
    std::size_t idLength;
    std::uint16_t usage;
    bool native;
    unsigned char keyReference;
    std::uint16_t modulusLength;
    mw::ByteBuffer path;
};

class KeySamples : public hosttest::SampleCard {
protected:
    static constexpr std::uint16_t prkdfId = 0x4400, pukdfId = 0x4401;

    template <class Key> void expectKey(const Key& key, const ExpectedKey& expected) const {
        SCOPED_TRACE(expected.label);
        EXPECT_EQ(key.getLabel().value_or(""), expected.label);
        EXPECT_EQ(key.getKeyId().size(), expected.idLength);
        EXPECT_EQ(key.getUsage(), expected.usage);
        EXPECT_EQ(key.getNative(), expected.native);
        EXPECT_EQ(key.getKeyReference().keyReference, expected.keyReference);
        EXPECT_EQ(key.getModulusLength(), expected.modulusLength);
        EXPECT_EQ(key.getKeyValueReference(), expected.path);
    }
    void expectPrivateKeys(const std::vector<ExpectedKey>& expected) const {
        const auto keys = application_->getPrivateKeys(*channel_);
        ASSERT_EQ(keys.size(), expected.size());
        for (std::size_t i = 0; i < keys.size(); ++i) {
            expectKey(dynamic_cast<const app::object::IPrivateRSAKey&>(*keys[i]), expected[i]);
        }
    }
};

TEST_P(KeySamples, PrivateKeysOfRealCardsLoadWithTheirAttributes) {
    const mw::ByteBuffer beEidPath{0x3F, 0x00, 0xDF, 0x00};
    put(prkdfId, "be-eid-virtual_prkdf.hex");
    expectPrivateKeys({{"Authentication", 1, IKey::Sign, true, 0x82, 1024, beEidPath},
                       {"Signature", 1, IKey::NonRepudiation, true, 0x83, 1024, beEidPath}});

    put(prkdfId, "es-dnie-especimen_prkdf.hex");
    const auto keys = application_->getPrivateKeys(*channel_);
    ASSERT_EQ(keys.size(), 2u);
    const auto& signing = dynamic_cast<const app::object::IPrivateRSAKey&>(*keys[1]);
    EXPECT_EQ(signing.getLabel().value_or(""), "KprivFirmaDigital");
    EXPECT_EQ(signing.getKeyReference().keyReference, 0x02);
    EXPECT_EQ(signing.getModulusLength(), 2048);
    EXPECT_EQ(signing.getKeyValueReference(), (mw::ByteBuffer{0x3F, 0x11, 0x01, 0x02}));

    put(prkdfId, "es-accv-gyd-smartcafe_prkdf.hex");
    expectPrivateKeys(
        {{"FIRMA", 20, 0x1D0, true, 0x00, 0, {}}, {"CIFRADO", 24, 0x110, true, 0x01, 2048, {}}});
    EXPECT_TRUE(application_->getPrivateKeys(*channel_).at(1)->getSubjectName());

    put(prkdfId, "es-fnmt-tui_prkdf.hex");
    expectPrivateKeys({{"Clave privada", 20, 0x0D0, true, 0x06, 1024, {}}});
}

TEST_P(KeySamples, APublicKeyOfARealCardLoadsWithItsAttributes) {
    put(pukdfId, "uy-eid-gemalto_pukdf.hex");
    const auto keys = application_->getPublicKeys(*channel_);
    ASSERT_EQ(keys.size(), 1u);
    const auto& key = dynamic_cast<const app::object::IPublicRSAKey&>(*keys[0]);
    EXPECT_FALSE(key.getNative());
    EXPECT_EQ(key.getKeyReference().keyReference, 0x01);
    EXPECT_EQ(key.getModulusLength(), 2048);
    EXPECT_TRUE(key.getKeyValueReference().empty());
}

// keyReference 82 in two octets, no native, userConsent on the neighbour:
// none of it may change when a label does.
TEST_P(KeySamples, ARelabelledKeyKeepsEverythingElseByteForByte) {
    put(prkdfId, "be-eid-virtual_prkdf.hex");
    const mw::ByteBuffer before = content(prkdfId);
    const auto key = application_->getPrivateKeys(*channel_).at(1);
    key->setLabel("Signatura");
    application_->writeCardObject(*channel_, *key);
    EXPECT_EQ(content(prkdfId), replaced(before, "Signature", "Signatura"));
}

INSTANTIATE_TEST_SUITE_P(Transports, KeySamples,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
