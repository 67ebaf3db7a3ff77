// The crypto engines as a host gets them from the plugin, on the virtual
// card in-process: key pairs generated on the card, every signature
// algorithm of the table signed by the card and verified in software,
// software enciphering for the card to decipher, random bytes, and
// what the factories and the generator refuse.
#include "AppErrors.hpp"
#include "AppOnCard.hpp"
#include "CardFixture.hpp"
#include "UnconnectedChannel.hpp"

#include "app/IApplication.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/crypto/IRandom.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/loader/PluginLoader.hpp"
#include "mw/Hex.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <memory>
#include <tuple>

namespace {

using app::crypto::ICipher;
using app::crypto::ISignature;
using app::object::IKey;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;
using KeyPair = support::RsaKeyPair;

const std::string rsaEncryption = "1.2.840.113549.1.1.1";
const std::string sha256WithRsa = "1.2.840.113549.1.1.11";

const auto bytesOf = hosttest::text;

// The plugin's application on a freshly personalised virtual card, with the
// user PIN verified, reached through the host card layer.
class PluginCard : public support::AppOnCard {
public:
    explicit PluginCard(const vcard::Personalisation& options = {})
        : AppOnCard(vcard::personalise(options))
        , loader_(P15APP_PATH, hosttest::NoConfiguration()) {
        verifyUserPin(*open());
        reopen();
    }

    // The application anew: nothing cached from before.
    void reopen() {
        application = loader_.getApplications(card, *channel).at(0);
        repository = boost::dynamic_pointer_cast<app::object::ICardObjectRepository>(application);
        factory = boost::dynamic_pointer_cast<app::object::ICardObjectFactory>(application);
    }

    KeyPair generate(std::uint16_t bits, const std::string& label) const {
        const KeyPair pair = support::newKeyPair(*factory, label, bits, bits);
        application->getKeyPairGenerator(rsaEncryption)
            ->generate(*channel, pair.privateKey, pair.publicKey);
        return pair;
    }

    mw::ByteBuffer sign(const std::string& oid, const KeyPair& key,
                        const mw::ByteBuffer& data) const {
        const auto engine = application->getSignature(oid);
        engine->init(*channel, ISignature::Sign, *key.privateKey);
        return engine->sign(*channel, data);
    }

    bool verify(const std::string& oid, const KeyPair& key, const mw::ByteBuffer& data,
                const mw::ByteBuffer& signature) const {
        const auto engine = application->getSignature(oid);
        engine->init(*channel, ISignature::Verify, *key.publicKey);
        return engine->verify(*channel, data, signature);
    }

    boost::shared_ptr<app::IApplication> application;
    boost::shared_ptr<app::object::ICardObjectRepository> repository;
    boost::shared_ptr<app::object::ICardObjectFactory> factory;

private:
    host::PluginLoader loader_;
};

// One card for the suite with a 1024-bit and a 2048-bit key pair generated
// on it: generation is slow, the keys are shared.
class Engines : public testing::Test {
protected:
    static void SetUpTestSuite() {
        card_ = std::make_unique<PluginCard>();
        key1024_ = card_->generate(1024, "key 1024");
        key2048_ = card_->generate(2048, "key 2048");
    }
    static void TearDownTestSuite() {
        key1024_ = {};
        key2048_ = {};
        card_.reset();
    }

    // Key objects for the generator, not generated.
    static KeyPair newKeyPair(std::uint16_t privateBits, std::uint16_t publicBits,
                              const std::string& label) {
        return support::newKeyPair(*card_->factory, label, privateBits, publicBits);
    }

    static inline std::unique_ptr<PluginCard> card_;
    static inline KeyPair key1024_;
    static inline KeyPair key2048_;
};

// Each size takes the first key id of its range, and the host's public key
// object holds what the card generated.
TEST_F(Engines, KeyPairsOfEverySizeAreGeneratedIntoFreshReferences) {
    const KeyPair key1536 = card_->generate(1536, "key 1536");
    card_->reopen();
    const auto privateKeys = card_->repository->getPrivateKeys(*card_->channel);
    const auto publicKeys = card_->repository->getPublicKeys(*card_->channel);
    ASSERT_EQ(privateKeys.size(), 3u);
    ASSERT_EQ(publicKeys.size(), 3u);
    const std::tuple<std::uint16_t, unsigned char, const KeyPair&> expected[] = {
        {1024, 0x81, key1024_}, {2048, 0x8D, key2048_}, {1536, 0x87, key1536}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& [bits, reference, generated] = expected[i];
        SCOPED_TRACE(bits);
        const auto listedPrivate = boost::dynamic_pointer_cast<IPrivateRSAKey>(privateKeys[i]);
        const auto listedPublic = boost::dynamic_pointer_cast<IPublicRSAKey>(publicKeys[i]);
        EXPECT_EQ(listedPrivate->getModulusLength(), bits);
        EXPECT_EQ(listedPrivate->getKeyReference().keyReference, reference);
        EXPECT_EQ(listedPublic->getKeyReference().keyReference, reference);
        const unsigned char id = reference & 0x7F;
        EXPECT_EQ(listedPrivate->getKeyValueReference(), (mw::ByteBuffer{0x0E, id}));
        EXPECT_EQ(listedPublic->getKeyValueReference(), (mw::ByteBuffer{0x0F, id}));
        EXPECT_EQ(generated.publicKey->getModulus().size() * 8, bits);
        EXPECT_EQ(generated.publicKey->getPublicExponent(), (mw::ByteBuffer{0x01, 0x00, 0x01}));
        card_->repository->readCardObject(*card_->channel, *listedPublic);
        EXPECT_EQ(listedPublic->getModulus(), generated.publicKey->getModulus());
    }
    const mw::ByteBuffer data = bytesOf("signed with the 1536-bit key");
    EXPECT_TRUE(
        card_->verify(sha256WithRsa, key1536, data, card_->sign(sha256WithRsa, key1536, data)));
}

// Every row of the algorithm table: the card signs what the engine hashed
// and wrapped, the software verifies; one flipped bit in the signature or
// the data fails.
class EveryAlgorithm : public Engines, public testing::WithParamInterface<const char*> {};

TEST_P(EveryAlgorithm, TheCardSignsAndTheSoftwareVerifies) {
    const std::string oid = GetParam();
    mw::ByteBuffer data = bytesOf("a message of the host for " + oid);
    if (oid == rsaEncryption) {
        // Raw RSA signs what it is given: a DigestInfo the caller built.
        data = mw::ByteBuffer{0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                              0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
        data.append(mw::ByteBuffer(20));
    }
    mw::ByteBuffer signature = card_->sign(oid, key1024_, data);
    ASSERT_EQ(signature.size(), 128u);
    EXPECT_TRUE(card_->verify(oid, key1024_, data, signature));

    signature.data()[signature.size() / 2] ^= 0x01;
    EXPECT_FALSE(card_->verify(oid, key1024_, data, signature));
    signature.data()[signature.size() / 2] ^= 0x01;
    data.data()[0] ^= 0x80;
    EXPECT_FALSE(card_->verify(oid, key1024_, data, signature));
}

INSTANTIATE_TEST_SUITE_P(Table, EveryAlgorithm,
                         testing::Values("1.2.840.113549.1.1.1", "1.2.840.113549.1.1.5",
                                         "1.2.840.113549.1.1.14", "1.2.840.113549.1.1.11",
                                         "1.2.840.113549.1.1.12", "1.2.840.113549.1.1.13",
                                         "1.3.36.3.3.1.3", "1.3.36.3.3.1.2", "1.2.840.113549.1.1.2",
                                         "1.2.840.113549.1.1.4"));

// Enciphering and verifying need no card: they work on a channel to none.
TEST_F(Engines, TheSoftwareEnciphersAndTheCardDeciphers) {
    const UnconnectedChannel noCard;
    const auto cipher = card_->application->getCipher(rsaEncryption);
    EXPECT_EQ(cipher->getAlgorithm(), rsaEncryption);
    for (std::size_t length : {std::size_t{1}, std::size_t{117}}) {
        // Mode 0 means enciphering with a public key.
        cipher->init(noCard, static_cast<ICipher::OperationMode>(0), *key1024_.publicKey);
        const mw::ByteBuffer plain(std::vector<unsigned char>(length, 0x00));
        const mw::ByteBuffer cryptogram = cipher->encipher(noCard, plain);
        ASSERT_EQ(cryptogram.size(), 128u);
        cipher->init(*card_->channel, ICipher::Decipher, *key1024_.privateKey);
        EXPECT_EQ(cipher->decipher(*card_->channel, cryptogram), plain);
    }

    const mw::ByteBuffer data = bytesOf("verified without a card");
    const mw::ByteBuffer signature = card_->sign(sha256WithRsa, key1024_, data);
    const auto verifier = card_->application->getSignature(sha256WithRsa);
    verifier->init(noCard, ISignature::Verify, *key1024_.publicKey);
    EXPECT_TRUE(verifier->verify(noCard, data, signature));
}

TEST_F(Engines, RandomBytesComeFromTheCard) {
    const auto random = card_->application->getRandom();
    const vcard::Instrumentation::Counters before =
        card_->virtualCard->instrumentation().counters();
    const mw::ByteBuffer bytes = random->generate(*card_->channel, 300);
    EXPECT_EQ(bytes.size(), 300u);
    EXPECT_EQ(card_->virtualCard->instrumentation().counters().commands - before.commands, 2u)
        << "GET CHALLENGE of 256 and of 44 bytes";
    EXPECT_NE(random->generate(*card_->channel, 300), bytes);
}

TEST_F(Engines, TheFactoriesRefuseWhatTheyCannotServe) {
    const auto& application = *card_->application;
    // The card lists RSA-PSS and RSAES-OAEP, and performs them with a hash
    // of its profile named: not bare, not with SHA-1 (PSS) or SHA-384 (OAEP).
    for (const char* oid : {"1.2.840.113549.1.1.10", "1.2.840.113549.1.1.10/1.3.14.3.2.26"}) {
        EXPECT_APP_TEXT(application.getSignature(oid),
                        "failed to get signature algorithm implementation for oid");
    }
    EXPECT_APP_TEXT(application.getSignature("1.2.840.113549.1.1.99/2.16.840.1.101.3.4.2.1"),
                    "unsupported signature algorithm");
    for (const std::string& oid :
         {sha256WithRsa, std::string("1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.2")}) {
        EXPECT_APP_TEXT(application.getCipher(oid),
                        "failed to get cipher algorithm implementation for oid");
    }
    EXPECT_APP_TEXT(application.getKeyPairGenerator("1.2.840.113549.1.1.5"),
                    "KeyPairGenerator for given oid not supported");
    EXPECT_APP_TEXT(application.getMessageDigest("2.16.840.1.101.3.4.2.1"),
                    "getMessageDigest not supported");
    const auto signature = application.getSignature(sha256WithRsa);
    EXPECT_APP_TEXT(signature->init(*card_->channel, ISignature::Sign, *key1024_.publicKey),
                    "failed to cast from IKey to P15RsaPrivateKey");
    EXPECT_APP_TEXT(signature->init(*card_->channel, ISignature::Verify, *key1024_.privateKey),
                    "failed to cast from IKey to P15RsaPublicKey");
    const KeyPair ungenerated = newKeyPair(1024, 1024, "never generated");
    EXPECT_APP_TEXT(signature->init(*card_->channel, ISignature::Verify, *ungenerated.publicKey),
                    "modulus and public exponent must not be empty");

    // A private key is used only as its usage says, refused before any command.
    const std::uint64_t commands = card_->virtualCard->instrumentation().counters().commands;
    ungenerated.privateKey->setUsage(IKey::Decrypt | IKey::Unwrap | IKey::SignRecover);
    EXPECT_APP_TEXT(signature->init(*card_->channel, ISignature::Sign, *ungenerated.privateKey),
                    "the key's usage does not allow signing");
    ungenerated.privateKey->setUsage(IKey::NonRepudiation | IKey::Unwrap);
    EXPECT_APP_TEXT(application.getCipher(rsaEncryption)
                        ->init(*card_->channel, ICipher::Decipher, *ungenerated.privateKey),
                    "the key's usage does not allow deciphering");
    EXPECT_EQ(card_->virtualCard->instrumentation().counters().commands, commands);
}

// What the generator refuses before it touches the card, and a generation
// the card refuses: the card's status word reaches the host unchanged, and
// the entries written before the refusal stay, naming references in use.
TEST_F(Engines, ARefusedGenerationIsReportedAndKeepsWhatWasWritten) {
    const auto generator = card_->application->getKeyPairGenerator(rsaEncryption);
    const auto generate = [&](const KeyPair& pair) {
        generator->generate(*card_->channel, pair.privateKey, pair.publicKey);
    };
    vcard::Instrumentation& card = card_->virtualCard->instrumentation();
    const std::uint64_t commands = card.counters().commands;
    EXPECT_APP_TEXT(generate(newKeyPair(0, 0, "k")), "private key modulus sizes must be specified");
    EXPECT_APP_TEXT(generate(newKeyPair(1024, 0, "k")),
                    "public key modulus sizes must be specified");
    EXPECT_APP_TEXT(generate(newKeyPair(2048, 1024, "k")), "modulus sizes of keys must be equal");
    EXPECT_EQ(card.counters().commands, commands) << "sizes are checked before any card access";

    const mw::ByteBuffer prkdf = card_->readFile({0x44, 0x00});
    constexpr std::uint8_t generateKeyPair = 0x46;
    card.injectStatusWord(generateKeyPair, 0x6A84, 1);
    const KeyPair refused = newKeyPair(1024, 1024, "refused");
    EXPECT_CARD_ERROR(generate(refused), "Generate Asymmetric Key Pair", 0x6A84);
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

// A card that hashes: the algorithms it lists are performed whole on the
// card, the engine passes the data through. What the card's command cannot
// take, no message or one over 65535 bytes, the engine hashes and the card
// signs as a DigestInfo; the longest the command takes (in 255-byte parts)
// the card still hashes.
TEST(HashingCard, SignsWhatItListsOnTheCardAndWhatItsCommandTakes) {
    vcard::Personalisation options;
    options.hashOnCard = true;
    PluginCard card(options);
    const KeyPair key = card.generate(1024, "key");
    for (const char* oid :
         {"1.2.840.113549.1.1.5", "1.2.840.113549.1.1.11", "1.2.840.113549.1.1.13"}) {
        SCOPED_TRACE(oid);
        EXPECT_EQ(card.application->getSignature(oid)->getAlgorithm(), oid);
        const mw::ByteBuffer data = bytesOf("hashed on the card");
        const mw::ByteBuffer signature = card.sign(oid, key, data);
        EXPECT_TRUE(card.verify(oid, key, data, signature));
    }
    // Not listed: hashed by the engine, signed with raw RSA.
    EXPECT_EQ(card.application->getSignature("1.2.840.113549.1.1.4")->getAlgorithm(),
              rsaEncryption);

    const auto commands = [&] { return card.virtualCard->instrumentation().counters().commands; };
    for (const auto& [length, hashedOnCard] :
         {std::pair{0, false}, {65535, true}, {65536, false}, {200000, false}}) {
        SCOPED_TRACE(length);
        const mw::ByteBuffer data(std::vector<unsigned char>(length, 0x5A));
        const std::uint64_t before = commands();
        const mw::ByteBuffer signature = card.sign(sha256WithRsa, key, data);
        EXPECT_EQ(commands() - before > 255, hashedOnCard) << commands() - before << " commands";
        EXPECT_TRUE(card.verify(sha256WithRsa, key, data, signature));
    }
}

} // namespace
