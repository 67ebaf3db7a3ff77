// Key services on the card, in-process and over PC/SC, checked with Crypto++.
#include "CardFixture.hpp"
#include "TestKeys.hpp"

#include "card/CardException.hpp"
#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "mw/Exception.hpp"

#include <boost/exception/get_error_info.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace hosttest {
namespace {

using namespace card::service;
using card::crypto::spec::RsaPublicKeySpec;

const std::string rsaEncryption = "1.2.840.113549.1.1.1";

class KeyServicesTest : public CardTest {
protected:
    // Private key used after the user PIN, public key readable by all.
    void createKeyFiles(const KeyRef& privateKey, const KeyRef& publicKey) const {
        verifyUserPin();
        fileSystem()->createFile(
            *channel_, PrivateKeyCreateParams(privateKey, {{AccessUpdate, pinVerified(0x01)},
                                                           {AccessExecute, pinVerified(0x01)}}));
        fileSystem()->createFile(
            *channel_, PublicKeyCreateParams(
                           publicKey, {{AccessRead, always()}, {AccessUpdate, pinVerified(0x01)}}));
    }

    void removeKeys(const KeyRef& privateKey, const KeyRef& publicKey) const {
        keys()->removePrivateKey(*channel_, privateKey);
        keys()->removePublicKey(*channel_, publicKey);
        EXPECT_CARD_ERROR(keys()->readPublicKey(*channel_, publicKey),
                          "Generate Asymmetric Key Pair", 0x6A88);
    }

    // Signs and deciphers with the private key; checks both in software.
    void expectKeyPairWorks(const KeyRef& privateKey, const RsaPublicKeySpec& publicKey) const {
        mw::ByteBuffer digestInfo{0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                                  0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
        digestInfo.append(mw::ByteBuffer(20)); // a SHA-1 value
        const auto signer = crypto()->getSignature(rsaEncryption);
        ASSERT_TRUE(signer);
        signer->init(*channel_, privateKey, ICardKeyOperation::Sign);
        EXPECT_TRUE(isPkcs1Signature(publicKey, digestInfo, signer->sign(*channel_, digestInfo)));

        const mw::ByteBuffer secret{'s', 'e', 's', 's', 'i', 'o', 'n', ' ', 'k', 'e', 'y'};
        const auto decipherer = crypto()->getCipher(rsaEncryption);
        ASSERT_TRUE(decipherer);
        decipherer->init(*channel_, privateKey, ICardKeyOperation::Decipher);
        EXPECT_EQ(decipherer->decipher(*channel_, encipher(publicKey, secret)), secret);
    }
};

// A generated key pair and an imported CRT key sign and decipher as their software twins do,
// and are gone once removed. 2048-bit keys (long answers, chained cryptograms) are
// InProcessCardTest's.
TEST_P(KeyServicesTest, GeneratedAndImportedKeysSignDecipherAndAreRemoved) {
    const KeyRef generatedKey = keyRef(0x01, 1024, 0x0E);
    createKeyFiles(generatedKey, keyRef(0x01, 1024, 0x0F));
    const RsaPublicKeySpec generated =
        keys()->generateKeyPair(*channel_, generatedKey, keyRef(0x01, 1024, 0x0F));
    EXPECT_EQ(generated.getModulus().size(), 128u);
    EXPECT_EQ(generated.getPublicExponent(), (mw::ByteBuffer{0x01, 0x00, 0x01}));
    EXPECT_EQ(keys()->readPublicKey(*channel_, keyRef(0x01, 1024, 0x0F)).getModulus(),
              generated.getModulus());
    expectKeyPairWorks(generatedKey, generated);
    removeKeys(generatedKey, keyRef(0x01, 1024, 0x0F));

    CryptoPP::AutoSeededRandomPool rng;
    CryptoPP::InvertibleRSAFunction software;
    software.Initialize(rng, 1536, CryptoPP::Integer(65537));
    const CryptoPP::Integer& p = software.GetPrime1();
    const CryptoPP::Integer& q = software.GetPrime2();
    const std::size_t half = 96;
    const card::crypto::spec::RsaPrivateCrtKeySpec spec(
        1536, toBytes(software.GetPublicExponent(), 3), toBytes(p, half), toBytes(q, half),
        toBytes(software.GetModPrime1PrivateExponent(), half),
        toBytes(software.GetModPrime2PrivateExponent(), half), toBytes(p.InverseMod(q), half),
        toBytes(software.GetMultiplicativeInverseOfPrime2ModPrime1(), half));

    const KeyRef privateKey = keyRef(0x07, 1536, 0x0E);
    const KeyRef publicKey = keyRef(0x07, 1536, 0x0F);
    createKeyFiles(privateKey, publicKey);
    keys()->importPrivateKey(*channel_, privateKey, spec);

    const RsaPublicKeySpec onCard = keys()->readPublicKey(*channel_, publicKey);
    EXPECT_EQ(toInteger(onCard.getModulus()), software.GetModulus());
    expectKeyPairWorks(privateKey, onCard);
    removeKeys(privateKey, publicKey);
}

TEST_P(KeyServicesTest, KeyUseNeedsItsConditionAndAnExistingKey) {
    const KeyRef privateKey = keyRef(0x02, 1024, 0x0E);
    const KeyRef publicKey = keyRef(0x02, 1024, 0x0F);
    createKeyFiles(privateKey, publicKey);
    const auto signer = crypto()->getSignature(rsaEncryption);
    signer->init(*channel_, privateKey, ICardKeyOperation::Sign);
    EXPECT_CARD_ERROR(signer->sign(*channel_, {1, 2, 3}), "Compute Digital Signature", 0x6985);

    keys()->generateKeyPair(*channel_, privateKey, publicKey);
    pins()->deauthenticate(*channel_, pinReference(0x01));
    EXPECT_CARD_ERROR(signer->sign(*channel_, {1, 2, 3}), "Compute Digital Signature", 0x6982);
    verifyUserPin();
    removeKeys(privateKey, publicKey);
    EXPECT_CARD_ERROR(signer->init(*channel_, privateKey, ICardKeyOperation::Sign),
                      "Manage Security Environment", 0x6A88);
}

// The card and the applet selected by AID offer the same services and the one algorithm the
// card lists, nothing else; random bytes beyond one GET CHALLENGE are fresh.
TEST_P(KeyServicesTest, CardAndAppletOfferTheListedAlgorithmsAndServicesOnly) {
    const host::iso7816::Applet applet(session_, host::iso7816::pkcs15Aid());
    applet.select(*channel_);
    for (const char* name : {"PinManagementService", "FileAccessService", "FileSystemService",
                             "CryptographyService", "AsymmetricKeyManagementService"}) {
        EXPECT_TRUE(applet.hasInterface(name) && applet.getInterface(name)) << name;
    }
    EXPECT_FALSE(applet.hasInterface("SecretKeyService") ||
                 applet.getInterface("SecretKeyService"));
    EXPECT_EQ(applet.getAlgorithms(), std::vector<std::string>{rsaEncryption});
    EXPECT_EQ(card_->getAlgorithms(), std::vector<std::string>{rsaEncryption});
    EXPECT_FALSE(crypto()->getSignature("1.2.840.113549.1.1.11"));
    EXPECT_FALSE(crypto()->getCipher("1.2.840.113549.1.1.7"));
    EXPECT_CARD_ERROR(
        host::iso7816::Applet(session_, {0xA0, 0x00, 0x00, 0x00, 0x01}).select(*channel_), "Select",
        0x6A82);

    const auto random = crypto()->getRandom();
    const mw::ByteBuffer first = random->generate(*channel_, 300);
    EXPECT_EQ(first.size(), 300u);
    EXPECT_NE(random->generate(*channel_, 300), first);
    EXPECT_TRUE(random->generate(*channel_, 0).empty());
}

INSTANTIATE_TEST_SUITE_P(Transports, KeyServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort,
                                           TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
