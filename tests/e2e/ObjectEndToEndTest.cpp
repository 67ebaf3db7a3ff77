// Keys, certificates, data objects, the token information and PIN entries
// through the plugin, the host card layer and the in-process virtual card:
// what reaches the card, what comes back, what a refusal leaves behind, and
// which commands are sent. The plugin's refusals in its own words:
// Engines.EveryRefusalOfThePluginSaysWhyBeforeTheCardHearsOfIt. Relabelling:
// Samples.ARelabelledObjectKeepsEverythingElseByteForByte.
#include "PluginOnCard.hpp"

#include "app/object/IApplicationInfo.hpp"
#include "app/object/ICertificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <tuple>
#include <vector>

namespace {

using app::object::ICardObject;
using app::object::IDataObject;
using app::object::IPrivateRSAKey;
using mw::ByteBuffer;
using support::certificateFile;
using support::RsaKeyMaterial;

const ByteBuffer prkdfId{0x44, 0x00}, pukdfId{0x44, 0x01}, cdfId{0x44, 0x04}, dodfId{0x44, 0x07},
    aodfId{0x44, 0x08}, tokenInfoId{0x50, 0x32};
const ByteBuffer firstCertificateFile{0x0D, 0x01}; // the first for objects with rules
const ByteBuffer firstDataFile{0xDF, 0x02, 0x0D, 0x81};

// `entry` twice, as a directory file naming one file from two entries.
const auto twice = [](ByteBuffer entry) { return entry.append(ByteBuffer(entry)), entry; };

// An entry the application keeps but does not list (an EC key, an attribute
// certificate) of `length` bytes of content.
ByteBuffer unlisted(std::size_t length, unsigned char fill = 0x00) {
    ByteBuffer entry{0xA0, 0x82, static_cast<unsigned char>(length >> 8),
                     static_cast<unsigned char>(length)};
    entry.append(ByteBuffer(std::vector<unsigned char>(length, fill)));
    return entry;
}

class OnTheCard : public testing::Test, protected e2e::PluginCard {
protected:
    explicit OnTheCard(bool verified = true)
        : PluginCard({}, verified) {}

    void write(const ICardObject& object) const { repository->writeCardObject(*channel, object); }
    void read(ICardObject& object) const { repository->readCardObject(*channel, object); }
    void remove(const ICardObject& object) const { repository->deleteCardObject(*channel, object); }

    // A certificate of `file` whose value needs the user PIN, not on the card yet.
    boost::shared_ptr<app::object::ICertificate>
    newCertificate(const char* file = "small.der") const {
        const auto made = factory->createCertificate(app::object::ICertificate::X509Certificate,
                                                     support::userPinRules());
        made->setValue(certificateFile(file));
        return made;
    }
    boost::shared_ptr<IDataObject> newDataObject(const ByteBuffer& value) const {
        const auto made = factory->createDataObject(IDataObject::OpaqueDataObject, {});
        made->setValue(value);
        return made;
    }
    boost::shared_ptr<IDataObject> dataObjectAt(std::size_t index) const {
        return repository->getDataObjects(*channel).at(index);
    }
    boost::shared_ptr<IPrivateRSAKey> newPrivateKey(const RsaKeyMaterial& key) const {
        return support::newKeyPair(*factory, "k", key).privateKey;
    }
    boost::shared_ptr<IPrivateRSAKey> privateKey(std::size_t index) const {
        return boost::dynamic_pointer_cast<IPrivateRSAKey>(
            repository->getPrivateKeys(*channel).at(index));
    }
};
using ValueObjectsOnTheCard = OnTheCard;
using KeysOnTheCard = OnTheCard;

// Values up to 65535 bytes are taken, whole, with the entry's names; a
// larger one is refused before the card hears of it.
TEST_F(ValueObjectsOnTheCard, ValuesUpTo65535BytesRoundTripAndLargerOnesAreRefusedFirst) {
    const ByteBuffer oid{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37}; // 1.3.6.1.4.1.311
    const auto data = newDataObject(ByteBuffer(65536));
    data->setLabel("Container");
    data->setApplicationName("p15kit test");
    data->setApplicationOid(oid);
    EXPECT_EQ(commandsOf([&] {
                  EXPECT_APP_TEXT(write(*data), "data object value size exceeds 65535 bytes");
              }),
              0u);

    ByteBuffer largest(65535);
    for (std::size_t i = 0; i < largest.size(); ++i) {
        largest.data()[i] = static_cast<unsigned char>(i * 31 + (i >> 8)); // no two pages alike
    }
    data->setValue(largest);
    write(*data);
    reopen();
    const auto stored = dataObjectAt(0);
    EXPECT_EQ(stored->getLabel().value_or(""), "Container");
    EXPECT_EQ(stored->getApplicationName().value_or(""), "p15kit test");
    EXPECT_EQ(stored->getApplicationOid().value_or(ByteBuffer()), oid);
    read(*stored);
    EXPECT_EQ(stored->getValue(), largest);
    EXPECT_TRUE(exists(firstDataFile))
        << "a data object without rules takes the first of its range";
}

// Entries of one algorithm for signing (reference 1) and for deciphering
// (reference 2): the list reported, set back, leaves EF(TokenInfo) as it was.
TEST_F(ValueObjectsOnTheCard, AnAlgorithmListSetBackAsReportedLeavesTokenInfoAsItWas) {
    namespace oss = app::pkcs15::oss;
    const ByteBuffer personalised = readFile(tokenInfoId);
    oss::TokenInfo value;
    oss::decode(personalised.data(), personalised.size(), value);
    oss::AlgorithmInfo decipher = value.supportedAlgorithms->front();
    decipher.reference = 2;
    decipher.supportedOperations.octets = {0x04};
    value.supportedAlgorithms->push_back(decipher);
    put(tokenInfoId, ByteBuffer(oss::encode(value)));
    const ByteBuffer twoEntries = readFile(tokenInfoId);
    reopen();
    auto info = repository->getApplicationInfo(*channel);
    EXPECT_EQ(commandsOf([&] { write(*info); }), 0u);
    const std::vector<std::string> reported = info->getSupportedAlgorithms().value();
    ASSERT_EQ(reported, std::vector<std::string>(2, e2e::rsaEncryption));
    info->setSupportedAlgorithms(reported);
    write(*info);
    reopen();
    EXPECT_EQ(repository->getApplicationInfo(*channel)->getSupportedAlgorithms().value(), reported);
    EXPECT_EQ(readFile(tokenInfoId), twoEntries);
}

// The value's UPDATE BINARY fails after the entry went in: the entry goes
// out again and the file made for the value is deleted.
TEST_F(ValueObjectsOnTheCard, AValueTheCardRefusesLeavesNeitherEntryNorFile) {
    const ByteBuffer emptyDodf = readFile(dodfId);
    // The entry goes in with two UPDATE BINARY (its body, then its first
    // byte); the third is the value's.
    virtualCard->instrumentation().injectStatusWord(0xD6, 0x6581, 3);
    EXPECT_CARD_ERROR(write(*newDataObject({0x01, 0x02})), "Update Binary", 0x6581);
    EXPECT_EQ(readFile(dodfId), emptyDodf);
    EXPECT_FALSE(exists(firstDataFile));
    reopen();
    EXPECT_TRUE(repository->getDataObjects(*channel).empty());
}

// A removal cut short after its entry went leaves the value file unlisted;
// the next object given that file takes it over.
TEST_F(ValueObjectsOnTheCard, AFileARemovalLeftUnlistedIsTakenOverByTheNextWrite) {
    const auto first = newCertificate("large.der");
    write(*first);
    virtualCard->instrumentation().injectStatusWord(0xE4, 0x6581, 1);
    EXPECT_CARD_ERROR(remove(*first), "Delete File", 0x6581);
    ASSERT_TRUE(exists(firstCertificateFile));

    write(*newCertificate());
    reopen();
    const auto listed = repository->getCertificates(*channel).at(0);
    read(*listed);
    EXPECT_EQ(listed->getValue(), certificateFile("small.der"));
    EXPECT_EQ(readFile(firstCertificateFile), certificateFile("small.der"));
}

// An entry that exactly fills EF(CDF) is written; with one byte less room
// it is refused before anything is written: no entry, no value file.
TEST_F(ValueObjectsOnTheCard, AnEntryExactlyFillingEfCdfIsWrittenAndOneByteMoreIsRefused) {
    auto made = newCertificate();
    write(*made);
    const std::size_t entry = firstEntry(readFile(cdfId)).size(), size = readFile(cdfId).size();
    remove(*made);
    for (const std::size_t room : {entry - 1, entry}) {
        SCOPED_TRACE(room);
        // An attribute certificate, kept but not listed, takes all but `room` bytes.
        ByteBuffer cdf = unlisted(size - room - 4);
        cdf.append(ByteBuffer(room));
        put(cdfId, cdf);
        reopen();
        made = newCertificate();
        if (room < entry) {
            EXPECT_APP_TEXT(write(*made), "EF(CDF) out of memory");
            EXPECT_EQ(readFile(cdfId), cdf);
            EXPECT_FALSE(exists(firstCertificateFile));
        } else {
            write(*made);
            reopen();
            EXPECT_EQ(repository->getCertificates(*channel).size(), 1u);
            EXPECT_NE(readFile(cdfId).get(size - 1), 0x00) << "the entry ends the file";
        }
    }
}

// One value file named by two entries: its value cannot be replaced, and
// removing one entry keeps the file for the other; the last takes it along.
TEST_F(ValueObjectsOnTheCard, AValueFileTwoEntriesNameGoesWithTheLastOfThem) {
    write(*newDataObject({0x01, 0x02}));
    put(dodfId, twice(firstEntry(readFile(dodfId))));
    reopen();
    auto listed = dataObjectAt(0);
    listed->setValue(ByteBuffer{0x03});
    EXPECT_APP_TEXT(write(*listed),
                    "the value's file holds other objects too; it cannot be replaced");
    for (const bool last : {false, true}) {
        reopen();
        remove(*dataObjectAt(0));
        EXPECT_EQ(exists(firstDataFile), !last);
    }
}

// Imported keys take the first free id of their size's range in turn, and
// a public key joins its private key (read back: KeyCommands.
// AnImportedKeyExportsAsTheFilesPublicKey). An EC key the application does
// not list stays first in EF(PrKDF), byte for byte, through the imports and
// removals of the keys after it.
TEST_F(KeysOnTheCard, ImportedKeysOfEverySizeTakeTheirReferencesInTurnAndOtherKindsStay) {
    put(prkdfId, ByteBuffer{0xA0, 0x03, 0x01, 0x02, 0x03});
    const ByteBuffer before = readFile(prkdfId);
    const std::pair<unsigned, unsigned char> imports[] = {
        {1024, 0x81}, {1024, 0x82}, {1536, 0x87}, {2048, 0x8D}};
    for (const auto& [bits, reference] : imports) {
        const support::RsaKeyPair pair =
            support::newKeyPair(*factory, "Signing key", support::rsaKey(bits));
        write(*pair.privateKey);
        write(*pair.publicKey);
        EXPECT_EQ(pair.publicKey->getKeyReference().keyReference, reference);
    }
    reopen();
    const auto keys = repository->getPrivateKeys(*channel);
    const auto publicKeys = repository->getPublicKeys(*channel);
    ASSERT_EQ(keys.size(), 4u);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const auto& [bits, reference] = imports[i];
        const auto key = boost::dynamic_pointer_cast<IPrivateRSAKey>(keys[i]);
        const ByteBuffer file{0x0E, static_cast<unsigned char>(reference & 0x7F)};
        const card::service::KeyRef ref = key->getKeyReference();
        EXPECT_EQ(std::make_tuple(unsigned{key->getModulusLength()}, ref.keyReference, ref.fileId,
                                  key->getKeyValueReference(), key->getKeyId()),
                  std::make_tuple(bits, reference, file, file, hosttest::text("Signing key")));
    }
    for (std::size_t i : {1, 0, 3, 2}) {
        remove(*keys[i]);
        remove(*publicKeys[i]);
    }
    EXPECT_EQ(readFile(prkdfId), before);
    for (const auto& [bits, reference] : imports) {
        const unsigned char id = reference & 0x7F;
        EXPECT_FALSE(exists(ByteBuffer{0x0E, id}) || exists(ByteBuffer{0x0F, id})) << +reference;
    }
}

// A refused import leaves both directory files and the containers of the
// first key id as they were: refused for room, by the card for the key's
// values, or by the card for want of the PIN.
TEST_F(KeysOnTheCard, ARefusedWriteLeavesTheCardAsItWas) {
    const auto snapshot = [this] {
        return std::make_tuple(readFile(prkdfId), readFile(pukdfId), exists({0x0E, 0x01}),
                               exists({0x0F, 0x01}));
    };
    const RsaKeyMaterial& material = support::rsaKey();
    // A directory file with room for less than one more entry: an EC key
    // (kept as the card has it) fills it up to its last 40 bytes.
    const std::size_t size = readFile(prkdfId).size();
    put(prkdfId, unlisted(size - 40 - 4, 0x5A));
    reopen();
    EXPECT_TRUE(repository->getPrivateKeys(*channel).empty()) << "EC keys are not listed";
    auto before = snapshot();
    EXPECT_APP_TEXT(write(*newPrivateKey(material)), "EF(PrKDF) out of memory");
    EXPECT_TRUE(snapshot() == before);

    // The card refuses the key itself: its CRT values do not belong together.
    put(prkdfId, ByteBuffer(size));
    reopen();
    before = snapshot();
    RsaKeyMaterial broken = material;
    broken.dq.data()[broken.dq.size() - 1] ^= 0x01;
    EXPECT_CARD_ERROR(write(*newPrivateKey(broken)), "Put Data", 0x6A80);
    EXPECT_TRUE(snapshot() == before) << "no entry and no container left behind";

    // Without the PIN the card refuses to create the key's container.
    support::pinAt(*repository, *channel)->deauthenticate(*channel);
    reopen();
    EXPECT_CARD_ERROR(write(*newPrivateKey(material)), "Create File", 0x6982);
    EXPECT_TRUE(snapshot() == before);
}

// A key file that a second entry still names stays when the first entry
// goes, and goes with the last; an entry whose files are gone deletes whole.
TEST_F(KeysOnTheCard, AKeyFileAnotherEntryNamesStaysUntilTheLastEntryGoes) {
    write(*newPrivateKey(support::rsaKey()));
    const ByteBuffer prkdf = readFile(prkdfId);
    put(prkdfId, twice(firstEntry(prkdf)));
    for (const bool last : {false, true}) {
        reopen();
        remove(*privateKey(0));
        EXPECT_EQ(exists(ByteBuffer{0x0E, 0x01}), !last);
    }
    put(prkdfId, prkdf);
    reopen();
    remove(*privateKey(0));
    EXPECT_EQ(readFile(prkdfId), ByteBuffer(prkdf.size()));
}

// The PINs of the personalised card as a host sees them, none verified.
// Listing, blocking, unblocking and changing PINs run through p15tool's
// PinCommands suite; these pin what the plugin does with the entries.
class PinsThroughThePlugin : public OnTheCard {
protected:
    PinsThroughThePlugin()
        : OnTheCard(false) {}
    boost::shared_ptr<app::object::IPin> pin(std::size_t index) const {
        return support::pinAt(*repository, *channel, index);
    }
};

// A label written changes its entry only: longer, it goes behind the others,
// which stay where they are. Refused by the card (the PIN not verified), too
// large for EF(AODF) or for any entry, it changes nothing; with nothing set
// a write sends nothing.
TEST_F(PinsThroughThePlugin, ALabelWrittenChangesItsEntryOnly) {
    const ByteBuffer before = readFile(aodfId);
    const auto user = pin(0), puk = pin(1);
    EXPECT_EQ(commandsOf([&] { write(*user); }), 0u);
    user->authenticate(*channel, hosttest::text(hosttest::userPin));
    user->deauthenticate(*channel);
    EXPECT_EQ(user->getPinInfo(*channel).state, 0);
    puk->setLabel("Unblocking PIN");
    EXPECT_CARD_ERROR(write(*puk), "Update Binary", 0x6982);
    user->authenticate(*channel, hosttest::text(hosttest::userPin));
    puk->setLabel(std::string(before.size(), 'x'));
    EXPECT_APP_TEXT(write(*puk), "EF(AODF) out of memory");
    puk->setLabel(std::string(70000, 'x'));
    EXPECT_APP_TEXT(write(*puk), "encoded pin size exceeds 65535 bytes");
    EXPECT_EQ(readFile(aodfId), before);

    puk->setLabel("Unblocking PIN");
    write(*puk);
    const ByteBuffer after = readFile(aodfId);
    const std::size_t userLength = 2 + before.get(1); // short-form lengths on this card
    const std::size_t soAt = userLength + 2 + before.get(userLength + 1);
    EXPECT_EQ(after.get(0, userLength), before.get(0, userLength));
    EXPECT_EQ(after.get(userLength, 1), ByteBuffer{0xD0}) << "a hole where it was";
    EXPECT_EQ(after.get(soAt, 2 + before.get(soAt + 1)),
              before.get(soAt, 2 + before.get(soAt + 1)));
    EXPECT_EQ(pin(2)->getLabel().value_or(""), "Unblocking PIN");
    EXPECT_EQ(pin(2)->getPinFlags(), puk->getPinFlags());
}

} // namespace
