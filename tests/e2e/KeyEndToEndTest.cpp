// RSA keys through the plugin, the host card layer and the virtual
// card: import, listing, public key, removal, and what a refusal leaves
// behind. Relabelling: Samples.ARelabelledObjectKeepsEverythingElseByteForByte.
#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "PluginOnCard.hpp"

#include <tuple>

namespace {

using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;
using support::RsaKeyMaterial;

class KeysOnTheCard : public hosttest::PluginOnCard {
protected:
    const mw::ByteBuffer prkdfId{0x44, 0x00};
    const mw::ByteBuffer pukdfId{0x44, 0x01};

    boost::shared_ptr<IPrivateRSAKey> newPrivateKey(const RsaKeyMaterial& key,
                                                    const std::string& label) const {
        return support::newKeyPair(*factory_, label, key).privateKey;
    }

    boost::shared_ptr<IPrivateRSAKey> privateKey(std::size_t index) const {
        return boost::dynamic_pointer_cast<IPrivateRSAKey>(
            application_->getPrivateKeys(*channel_).at(index));
    }
    boost::shared_ptr<IPublicRSAKey> publicKey(std::size_t index) const {
        return boost::dynamic_pointer_cast<IPublicRSAKey>(
            application_->getPublicKeys(*channel_).at(index));
    }
};

TEST_P(KeysOnTheCard, KeysOfEverySizeMakeTheWholeRoundTrip) {
    for (unsigned int bits : {1024u, 1536u, 2048u}) {
        SCOPED_TRACE(bits);
        const RsaKeyMaterial& material = support::rsaKey(bits);
        application_->writeCardObject(*channel_, *newPrivateKey(material, "Signing key"));

        reopen();
        const auto listed = privateKey(0);
        EXPECT_EQ(listed->getKeyId(), hosttest::text("Signing key"));
        EXPECT_EQ(listed->getModulusLength(), bits);
        const card::service::KeyRef ref = listed->getKeyReference();
        const unsigned char fileHigh = bits == 1024 ? 0x01 : bits == 1536 ? 0x07 : 0x0D;
        EXPECT_EQ(listed->getKeyValueReference(), (mw::ByteBuffer{0x0E, fileHigh}));
        EXPECT_EQ(ref.keyReference, 0x80 | fileHigh);

        const auto publicKey = support::newKeyPair(*factory_, "Signing key", material).publicKey;
        application_->writeCardObject(*channel_, *publicKey);
        EXPECT_EQ(publicKey->getKeyReference().keyReference, ref.keyReference)
            << "the public key joins its private key";

        reopen();
        const auto readBack = this->publicKey(0);
        readBack->setModulus(mw::ByteBuffer(material.modulus.size()));
        application_->readCardObject(*channel_, *readBack);
        EXPECT_EQ(readBack->getModulus(), material.modulus);
        EXPECT_EQ(readBack->getPublicExponent(), material.exponent);

        application_->deleteCardObject(*channel_, *privateKey(0));
        application_->deleteCardObject(*channel_, *this->publicKey(0));
        reopen();
        EXPECT_TRUE(application_->getPrivateKeys(*channel_).empty());
        EXPECT_TRUE(application_->getPublicKeys(*channel_).empty());
        EXPECT_FALSE(exists(mw::ByteBuffer{0x0E, fileHigh}));
        EXPECT_FALSE(exists(mw::ByteBuffer{0x0F, fileHigh}));
    }
}

// An EC key the application does not list stays first in the file, byte
// for byte, through the imports and removals of the keys after it.
TEST_P(KeysOnTheCard, KeyReferencesAreHandedOutInOrderAndOtherKindsOfKeyStay) {
    const mw::ByteBuffer ecKey{0xA0, 0x03, 0x01, 0x02, 0x03};
    put(prkdfId, ecKey);
    const mw::ByteBuffer before = fileContent(prkdfId);
    for (const char* label : {"one", "two", "three"}) {
        application_->writeCardObject(*channel_, *newPrivateKey(support::rsaKey(), label));
    }
    reopen();
    const auto keys = application_->getPrivateKeys(*channel_);
    ASSERT_EQ(keys.size(), 3u);
    const unsigned char expected[] = {0x81, 0x82, 0x83};
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const card::service::KeyRef ref = keys[i]->getKeyReference();
        EXPECT_EQ(ref.keyReference, expected[i]);
        EXPECT_EQ(ref.fileId, (mw::ByteBuffer{0x0E, static_cast<unsigned char>(i + 1)}));
    }
    for (std::size_t i : {1, 0, 2}) {
        application_->deleteCardObject(*channel_, *keys[i]);
    }
    EXPECT_EQ(fileContent(prkdfId), before);
}

TEST_P(KeysOnTheCard, ARefusedWriteLeavesTheCardAsItWas) {
    // Both directory files and the containers of the first key id.
    const auto snapshot = [this] {
        return std::make_tuple(fileContent(prkdfId), fileContent(pukdfId),
                               exists(mw::ByteBuffer{0x0E, 0x01}),
                               exists(mw::ByteBuffer{0x0F, 0x01}));
    };
    const RsaKeyMaterial& material = support::rsaKey();

    // A directory file with room for less than one more entry: an EC key
    // (kept as the card has it) fills it up to its last 40 bytes.
    const std::size_t size = fileContent(prkdfId).size(), ecLength = size - 40 - 4;
    mw::ByteBuffer full{0xA0, 0x82, static_cast<unsigned char>(ecLength >> 8),
                        static_cast<unsigned char>(ecLength)};
    full.append(mw::ByteBuffer(std::vector<unsigned char>(ecLength, 0x5A)));
    put(prkdfId, full);
    reopen();
    EXPECT_TRUE(application_->getPrivateKeys(*channel_).empty()) << "EC keys are not listed";
    auto before = snapshot();
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *newPrivateKey(material, "k")),
                    "EF(PrKDF) out of memory");
    EXPECT_TRUE(snapshot() == before);

    // The card refuses the key itself: its CRT values do not belong together.
    put(prkdfId, mw::ByteBuffer(size));
    reopen();
    before = snapshot();
    RsaKeyMaterial broken = material;
    broken.dq.data()[broken.dq.size() - 1] ^= 0x01;
    EXPECT_CARD_ERROR(application_->writeCardObject(*channel_, *newPrivateKey(broken, "k")),
                      "Put Data", 0x6A80);
    EXPECT_TRUE(snapshot() == before) << "no entry and no container left behind";

    // Without the PIN the card refuses to create the key's container.
    pins()->deauthenticate(*channel_, hosttest::pinReference(0x01));
    reopen();
    EXPECT_CARD_ERROR(application_->writeCardObject(*channel_, *newPrivateKey(material, "k")),
                      "Create File", 0x6982);
    verifyUserPin();
    EXPECT_TRUE(snapshot() == before);
}

// A key file that a second entry still names stays when the first entry
// goes, and goes with the last; an entry whose files are gone deletes whole.
TEST_P(KeysOnTheCard, AKeyFileAnotherEntryNamesStaysUntilTheLastEntryGoes) {
    application_->writeCardObject(*channel_, *newPrivateKey(support::rsaKey(), "shared"));
    const mw::ByteBuffer prkdf = fileContent(prkdfId);
    const mw::ByteBuffer entry = firstEntry(prkdf);
    mw::ByteBuffer twice(entry);
    twice.append(entry);
    put(prkdfId, twice);
    for (const bool last : {false, true}) {
        reopen();
        application_->deleteCardObject(*channel_, *privateKey(0));
        EXPECT_EQ(exists(mw::ByteBuffer{0x0E, 0x01}), !last);
    }
    put(prkdfId, prkdf);
    reopen();
    application_->deleteCardObject(*channel_, *privateKey(0));
    EXPECT_EQ(fileContent(prkdfId), mw::ByteBuffer(prkdf.size()));
}

TEST_P(KeysOnTheCard, APublicKeyWithoutModulusLengthIsRefusedFirst) {
    const mw::ByteBuffer before = fileContent(pukdfId);
    auto key = factory_->createPublicKey(app::object::IPublicKey::RsaPublicKey, {});
    key->setLabel("no size");
    EXPECT_APP_TEXT(application_->writeCardObject(*channel_, *key), "modulus length not set");
    EXPECT_EQ(fileContent(pukdfId), before);
}

INSTANTIATE_TEST_SUITE_P(Transports, KeysOnTheCard,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
