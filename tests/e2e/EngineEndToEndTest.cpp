// The crypto engines as a host gets them from the plugin, on the in-process
// virtual card, and every refusal of its factories, engines and repository.
#include "PluginOnCard.hpp"
#include "UnconnectedChannel.hpp"

#include "app/crypto/ICipher.hpp"
#include "app/crypto/IRandom.hpp"
#include "mw/Hex.hpp"

#include <tuple>

namespace {

using app::crypto::ICipher;
using app::crypto::ISignature;
using e2e::rsaEncryption;
using e2e::sha256WithRsa;
using KeyPair = support::RsaKeyPair;

// One card for the suite, with a 1024-bit key pair generated on it once.
class Engines : public testing::Test {
protected:
    static void SetUpTestSuite() {
        card_ = std::make_unique<e2e::PluginCard>();
        key1024_ = card_->generate(1024, "key 1024");
    }
    static void TearDownTestSuite() {
        key1024_ = {};
        card_.reset();
    }

    static inline std::unique_ptr<e2e::PluginCard> card_;
    static inline KeyPair key1024_;
};

// A 1536-bit pair takes the first key id of its range; its entries, read
// back, name its own key files; it signs.
TEST_F(Engines, AKeyPairIsGeneratedIntoTheFirstReferenceOfItsSize) {
    const KeyPair made = card_->generate(1536, "key 1536");
    card_->reopen();
    const auto key = boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(
        card_->repository->getPrivateKeys(*card_->channel).at(1));
    const auto pub = boost::dynamic_pointer_cast<app::object::IPublicRSAKey>(
        card_->repository->getPublicKeys(*card_->channel).at(1));
    EXPECT_EQ(std::make_tuple(unsigned{key->getModulusLength()},
                              key->getKeyReference().keyReference,
                              pub->getKeyReference().keyReference, key->getKeyValueReference(),
                              pub->getKeyValueReference(), made.publicKey->getPublicExponent()),
              std::make_tuple(1536u, 0x87, 0x87, mw::ByteBuffer{0x0E, 0x07},
                              mw::ByteBuffer{0x0F, 0x07}, mw::ByteBuffer{0x01, 0x00, 0x01}));
    const mw::ByteBuffer data = support::ascii("signed with the 1536-bit key");
    EXPECT_TRUE(card_->verify(sha256WithRsa, made, data, card_->sign(sha256WithRsa, made, data)));
}

// The card signs what the engine hashed and wrapped; one flipped bit in the
// signature or the data fails.
using EveryAlgorithm = Engines;
TEST_F(EveryAlgorithm, TheCardSignsAndTheSoftwareVerifies) {
    for (const std::string oid :
         {"1.2.840.113549.1.1.1", "1.2.840.113549.1.1.5", "1.2.840.113549.1.1.14",
          "1.2.840.113549.1.1.11", "1.2.840.113549.1.1.12", "1.2.840.113549.1.1.13",
          "1.3.36.3.3.1.3", "1.3.36.3.3.1.2", "1.2.840.113549.1.1.2", "1.2.840.113549.1.1.4"}) {
        SCOPED_TRACE(oid);
        // Raw RSA signs what it is given: a DigestInfo the caller built.
        mw::ByteBuffer data = oid == rsaEncryption
                                  ? mw::fromHex("3021300906052B0E03021A05000414")
                                  : support::ascii("a message of the host for " + oid);
        data.append(mw::ByteBuffer(oid == rsaEncryption ? 20 : 0));
        mw::ByteBuffer signature = card_->sign(oid, key1024_, data);
        ASSERT_EQ(signature.size(), 128u);
        EXPECT_TRUE(card_->verify(oid, key1024_, data, signature));
        signature.data()[signature.size() / 2] ^= 0x01;
        EXPECT_FALSE(card_->verify(oid, key1024_, data, signature));
        signature.data()[signature.size() / 2] ^= 0x01;
        data.data()[0] ^= 0x80;
        EXPECT_FALSE(card_->verify(oid, key1024_, data, signature));
    }
}

// Enciphering and verifying need no card: they work on a channel to none.
TEST_F(Engines, TheSoftwareEnciphersAndTheCardDeciphers) {
    const UnconnectedChannel noCard;
    const auto cipher = card_->application->getCipher(rsaEncryption);
    for (std::size_t length : {std::size_t{1}, std::size_t{117}}) {
        cipher->init(noCard, ICipher::Encipher, *key1024_.publicKey);
        const mw::ByteBuffer plain(std::vector<unsigned char>(length, 0x00));
        const mw::ByteBuffer cryptogram = cipher->encipher(noCard, plain);
        ASSERT_EQ(cryptogram.size(), 128u);
        cipher->init(*card_->channel, ICipher::Decipher, *key1024_.privateKey);
        EXPECT_EQ(cipher->decipher(*card_->channel, cryptogram), plain);
    }
    const mw::ByteBuffer data = support::ascii("verified without a card");
    const mw::ByteBuffer signature = card_->sign(sha256WithRsa, key1024_, data);
    const auto verifier = card_->application->getSignature(sha256WithRsa);
    verifier->init(noCard, ISignature::Verify, *key1024_.publicKey);
    EXPECT_TRUE(verifier->verify(noCard, data, signature));
}

// GET CHALLENGE of 256 and of 44 bytes.
TEST_F(Engines, RandomBytesComeFromTheCard) {
    const auto random = card_->application->getRandom();
    mw::ByteBuffer bytes;
    EXPECT_EQ(card_->commandsOf([&] { bytes = random->generate(*card_->channel, 300); }), 2u);
    EXPECT_EQ(bytes.size(), 300u);
    EXPECT_NE(random->generate(*card_->channel, 300), bytes);
}

// A card object the host made itself.
struct HostObject : app::object::ICardObject {
    ObjectClass getObjectClass() const override { return DataObject; }
    void setLabel(const std::string&) override {}
    const boost::optional<std::string>& getLabel() const override { return label; }
    void setFlags(std::uint8_t) override {}
    const boost::optional<std::uint8_t>& getFlags() const override { return flags; }
    boost::optional<std::string> label;
    boost::optional<std::uint8_t> flags;
};

// The card lists RSA-PSS and RSAES-OAEP and performs them with a hash of its
// profile named: not bare, not with SHA-1 (PSS) or SHA-384 (OAEP). A private
// key is used only as its usage says.
TEST_F(Engines, EveryRefusalOfThePluginSaysWhyBeforeTheCardHearsOfIt) {
    using namespace app::object;
    const auto& application = *card_->application;
    const auto& repository = *card_->repository;
    const auto& factory = *card_->factory;
    const card::IChannel& channel = *card_->channel;
    const auto signature = application.getSignature(sha256WithRsa);
    const KeyPair unmade = support::newKeyPair(factory, "never generated", 1024, 1024);
    const auto withUsage = [&](unsigned usage) {
        unmade.privateKey->setUsage(usage);
        return unmade.privateKey;
    };
    const auto generate = [&](std::uint16_t privateBits, std::uint16_t publicBits) {
        const KeyPair pair = support::newKeyPair(factory, "k", privateBits, publicBits);
        application.getKeyPairGenerator(rsaEncryption)
            ->generate(channel, pair.privateKey, pair.publicKey);
    };
    const auto user = support::pinAt(repository, channel);
    const auto info = repository.getApplicationInfo(channel);
    const app::AccessControlRules none;
    const HostObject foreign;
    const auto decipherer = application.getCipher(rsaEncryption);
    // clang-format off
    const std::pair<const char*, std::function<void()>> refusals[] = {
        {"failed to get signature algorithm implementation for oid", [&] { application.getSignature("1.2.840.113549.1.1.10"); }},
        {"failed to get signature algorithm implementation for oid", [&] { application.getSignature("1.2.840.113549.1.1.10/1.3.14.3.2.26"); }},
        {"unsupported signature algorithm", [&] { application.getSignature("1.2.840.113549.1.1.99/2.16.840.1.101.3.4.2.1"); }},
        {"failed to get cipher algorithm implementation for oid", [&] { application.getCipher(sha256WithRsa); }},
        {"failed to get cipher algorithm implementation for oid", [&] { application.getCipher("1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.2"); }},
        {"KeyPairGenerator for given oid not supported", [&] { application.getKeyPairGenerator("1.2.840.113549.1.1.5"); }},
        {"getMessageDigest not supported", [&] { application.getMessageDigest("2.16.840.1.101.3.4.2.1"); }},
        {"failed to cast from IKey to P15RsaPrivateKey", [&] { signature->init(channel, ISignature::Sign, *key1024_.publicKey); }},
        {"failed to cast from IKey to P15RsaPublicKey", [&] { signature->init(channel, ISignature::Verify, *key1024_.privateKey); }},
        {"modulus and public exponent must not be empty", [&] { signature->init(channel, ISignature::Verify, *unmade.publicKey); }},
        {"the key's usage does not allow signing", [&] { signature->init(channel, ISignature::Sign, *withUsage(IKey::Decrypt | IKey::Unwrap | IKey::SignRecover)); }},
        {"the key's usage does not allow deciphering", [&] { decipherer->init(channel, ICipher::Decipher, *withUsage(IKey::NonRepudiation | IKey::Unwrap)); }},
        {"private key modulus sizes must be specified", [&] { generate(0, 0); }},
        {"public key modulus sizes must be specified", [&] { generate(1024, 0); }},
        {"modulus sizes of keys must be equal", [&] { generate(2048, 1024); }},
        {"read pin not supported", [&] { repository.readCardObject(channel, *user); }},
        {"remove pin not supported", [&] { repository.deleteCardObject(channel, *user); }},
        {"failed to cast to AbstractP15Object", [&] { repository.writeCardObject(channel, foreign); }},
        {"getSecretKeys not supported", [&] { repository.getSecretKeys(channel); }},
        {"modulus length not set", [&] { repository.writeCardObject(channel, *factory.createPublicKey(IPublicKey::RsaPublicKey, {})); }},
        // A token without a serial number: Samples.LoadWithTheAttributesTheirCardsGaveThem.
        {"the serial number of a token cannot be changed", [&] { info->setSerialNumber(mw::ByteBuffer{0x01}); repository.writeCardObject(channel, *info); }},
        {"unsupported key type", [&] { factory.createPrivateKey(IPrivateKey::EcPrivateKey, none); }},
        {"access control rules are required but not set", [&] { factory.createPrivateKey(IPrivateKey::RsaPrivateKey, none); }},
        {"unsupported key type", [&] { factory.createPublicKey(IPublicKey::EcPublicKey, none); }},
        {"unsupported cert type", [&] { factory.createCertificate(ICertificate::AttributeCertificate, none); }},
        {"unsupported do type", [&] { factory.createDataObject(IDataObject::OidDataObject, none); }},
        {"creation of secret keys not supported", [&] { factory.createSecretKey(ISecretKey::GenericSecretKey, none); }},
    };
    // clang-format on
    for (const auto& [text, call] : refusals) {
        EXPECT_EQ(card_->commandsOf([&] { EXPECT_EQ(p15test::appError(call).first, text); }), 0u)
            << text;
    }
}

// The card's status word reaches the host; the entries stay, naming references in use.
TEST_F(Engines, ARefusedGenerationIsReportedAndKeepsWhatWasWritten) {
    vcard::Instrumentation& card = card_->virtualCard->instrumentation();
    const mw::ByteBuffer prkdf = card_->readFile({0x44, 0x00});
    card.injectStatusWord(0x46, 0x6A84, 1); // GENERATE ASYMMETRIC KEY PAIR
    const KeyPair refused = support::newKeyPair(*card_->factory, "refused", 1024, 1024);
    EXPECT_CARD_ERROR(card_->application->getKeyPairGenerator(rsaEncryption)
                          ->generate(*card_->channel, refused.privateKey, refused.publicKey),
                      "Generate Asymmetric Key Pair", 0x6A84);
    card.clearFault();
    EXPECT_NE(mw::toHex(card_->readFile({0x44, 0x00})), mw::toHex(prkdf));
    const KeyPair next = card_->generate(1024, "after the refusal");
    EXPECT_NE(next.privateKey->getKeyReference().keyReference,
              refused.privateKey->getKeyReference().keyReference);
    for (const KeyPair* pair : {&refused, &next}) {
        card_->repository->deleteCardObject(*card_->channel, *pair->privateKey);
        card_->repository->deleteCardObject(*card_->channel, *pair->publicKey);
    }
    EXPECT_EQ(mw::toHex(card_->readFile({0x44, 0x00})), mw::toHex(prkdf));
}

// The algorithms the card lists it performs whole. What its command cannot
// take (no message, one over 65535 bytes) the engine hashes and the card signs
// as a DigestInfo; the longest it takes (in 255-byte parts) the card hashes.
TEST(HashingCard, SignsWhatItListsOnTheCardAndWhatItsCommandTakes) {
    vcard::Personalisation options;
    options.hashOnCard = true;
    e2e::PluginCard card(options);
    const KeyPair key = card.generate(1024, "key");
    for (const char* oid :
         {"1.2.840.113549.1.1.5", "1.2.840.113549.1.1.11", "1.2.840.113549.1.1.13"}) {
        SCOPED_TRACE(oid);
        EXPECT_EQ(card.application->getSignature(oid)->getAlgorithm(), oid);
        const mw::ByteBuffer data = support::ascii("hashed on the card");
        const mw::ByteBuffer signature = card.sign(oid, key, data);
        EXPECT_TRUE(card.verify(oid, key, data, signature));
    }
    // Not listed: hashed by the engine, signed with raw RSA.
    EXPECT_EQ(card.application->getSignature("1.2.840.113549.1.1.4")->getAlgorithm(),
              rsaEncryption);

    for (const auto& [length, hashedOnCard] :
         {std::pair{0, false}, {65535, true}, {65536, false}, {200000, false}}) {
        SCOPED_TRACE(length);
        const mw::ByteBuffer data(std::vector<unsigned char>(length, 0x5A));
        mw::ByteBuffer signature;
        const std::uint64_t sent =
            card.commandsOf([&] { signature = card.sign(sha256WithRsa, key, data); });
        EXPECT_EQ(sent > 255, hashedOnCard) << sent << " commands";
        EXPECT_TRUE(card.verify(sha256WithRsa, key, data, signature));
    }
}

} // namespace
