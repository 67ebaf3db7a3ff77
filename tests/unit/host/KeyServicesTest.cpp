// Key services on the card, in-process and over PC/SC.
#include "CardFixture.hpp"
#include "TestKeys.hpp"

namespace hosttest {
namespace {

using namespace card::service;

const std::string rsaEncryption = "1.2.840.113549.1.1.1";

using KeyServicesTest = CardTest;

// Generation, import, signing and deciphering against software twins run through the whole
// stack in the e2e engine and PKCS#11 tests; here, what they do not reach.
TEST_P(KeyServicesTest, KeyUseNeedsItsConditionAndAnExistingKey) {
    const KeyRef privateKey = keyRef(0x02, 1024, 0x0E);
    const KeyRef publicKey = keyRef(0x02, 1024, 0x0F);
    verifyUserPin();
    fileSystem()->createFile(
        *channel_, PrivateKeyCreateParams(privateKey, {{AccessUpdate, pinVerified(0x01)},
                                                       {AccessExecute, pinVerified(0x01)}}));
    fileSystem()->createFile(*channel_,
                             PublicKeyCreateParams(publicKey, {{AccessRead, always()},
                                                               {AccessUpdate, pinVerified(0x01)}}));
    const auto signer = crypto()->getSignature(rsaEncryption);
    signer->init(*channel_, privateKey, ICardKeyOperation::Sign);
    EXPECT_CARD_ERROR(signer->sign(*channel_, {1, 2, 3}), "Compute Digital Signature", 0x6985);

    keys()->generateKeyPair(*channel_, privateKey, publicKey);
    pins()->deauthenticate(*channel_, pinReference(0x01));
    EXPECT_CARD_ERROR(signer->sign(*channel_, {1, 2, 3}), "Compute Digital Signature", 0x6982);
    verifyUserPin();
    keys()->removePrivateKey(*channel_, privateKey);
    keys()->removePublicKey(*channel_, publicKey);
    EXPECT_CARD_ERROR(keys()->readPublicKey(*channel_, publicKey), "Generate Asymmetric Key Pair",
                      0x6A88);
    EXPECT_CARD_ERROR(signer->init(*channel_, privateKey, ICardKeyOperation::Sign),
                      "Manage Security Environment", 0x6A88);
}

// The card and the applet selected by AID offer the same services and the algorithms the card
// lists, nothing else. Random bytes: Engines.RandomBytesComeFromTheCard (e2e).
TEST_P(KeyServicesTest, CardAndAppletOfferTheListedAlgorithmsAndServicesOnly) {
    const std::string pss = "1.2.840.113549.1.1.10", oaep = "1.2.840.113549.1.1.7";
    const host::iso7816::Applet applet(session_, host::iso7816::pkcs15Aid());
    applet.select(*channel_);
    for (const char* name : {"PinManagementService", "FileAccessService", "FileSystemService",
                             "CryptographyService", "AsymmetricKeyManagementService"}) {
        EXPECT_TRUE(applet.hasInterface(name) && applet.getInterface(name)) << name;
    }
    EXPECT_FALSE(applet.hasInterface("SecretKeyService") ||
                 applet.getInterface("SecretKeyService"));
    const std::vector<std::string> listed{rsaEncryption, pss, oaep};
    EXPECT_EQ(applet.getAlgorithms(), listed);
    EXPECT_EQ(card_->getAlgorithms(), listed);
    // Hash-and-sign is not listed; RSA-PSS and RSAES-OAEP come with the
    // hashes of the profile only, and never bare.
    for (const std::string& refused : {std::string("1.2.840.113549.1.1.11"), pss,
                                       pss + "/1.3.14.3.2.26", oaep + "/1.3.14.3.2.26"}) {
        EXPECT_FALSE(crypto()->getSignature(refused)) << refused;
    }
    EXPECT_FALSE(crypto()->getCipher(oaep) ||
                 crypto()->getCipher(oaep + "/2.16.840.1.101.3.4.2.2"));
    EXPECT_EQ(crypto()->getSignature(pss + "/2.16.840.1.101.3.4.2.3")->getAlgorithm(),
              pss + "/2.16.840.1.101.3.4.2.3");
    EXPECT_TRUE(crypto()->getCipher(oaep + "/1.3.14.3.2.26"));
    EXPECT_CARD_ERROR(
        host::iso7816::Applet(session_, {0xA0, 0x00, 0x00, 0x00, 0x01}).select(*channel_), "Select",
        0x6A82);
    EXPECT_TRUE(crypto()->getRandom()->generate(*channel_, 0).empty());
}

INSTANTIATE_TEST_SUITE_P(Transports, KeyServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::InProcessShort,
                                           TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
