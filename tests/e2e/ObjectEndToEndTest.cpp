// The plugin as a host loads it (over PC/SC: p15tool.pcsc, PcscSlotTest), and
// objects through it on the in-process virtual card: what reaches the card,
// what a refusal leaves behind. Refusals:
// Engines.EveryRefusalOfThePluginSaysWhyBeforeTheCardHearsOfIt; relabelling:
// Samples.ARelabelledObjectKeepsEverythingElseByteForByte.
#include "PluginOnCard.hpp"

#include "app/object/IApplicationInfo.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <boost/make_shared.hpp>

#include <tuple>

namespace {

using app::object::ICardObject;
using app::object::IDataObject;
using mw::ByteBuffer;
using support::certificateFile;
using support::RsaKeyMaterial;

const ByteBuffer prkdfId{0x44, 0x00}, pukdfId{0x44, 0x01}, cdfId{0x44, 0x04}, dodfId{0x44, 0x07},
    aodfId{0x44, 0x08}, tokenInfoId{0x50, 0x32};
const ByteBuffer firstCertificateFile{0x0D, 0x01}; // the first for objects with rules
const ByteBuffer firstDataFile{0xDF, 0x02, 0x0D, 0x81};

// `entry` twice, as a directory file naming one file from two entries.
const auto twice = [](ByteBuffer entry) {
    entry.append(ByteBuffer(entry));
    return entry;
};

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
    auto dataObjectAt(std::size_t i) const { return repository->getDataObjects(*channel).at(i); }
    auto newPrivateKey(const RsaKeyMaterial& key) const {
        return support::newKeyPair(*factory, "k", key).privateKey;
    }
    auto privateKey(std::size_t i) const { return repository->getPrivateKeys(*channel).at(i); }
};
using ValueObjectsOnTheCard = OnTheCard;
using KeysOnTheCard = OnTheCard;

TEST_F(ValueObjectsOnTheCard, ValuesUpTo65535BytesRoundTripAndLargerOnesAreRefusedFirst) {
    const ByteBuffer oid{0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37}; // 1.3.6.1.4.1.311
    const auto data = newDataObject(ByteBuffer(65536));
    data->setLabel("Container");
    data->setApplicationName("p15kit test");
    data->setApplicationOid(oid);
    const auto refused = [&] {
        EXPECT_APP_TEXT(write(*data), "data object value size exceeds 65535 bytes");
    };
    EXPECT_EQ(commandsOf(refused), 0u);

    ByteBuffer largest(65535);
    for (std::size_t i = 0; i < largest.size(); ++i) {
        largest.data()[i] = static_cast<unsigned char>(i * 31 + (i >> 8)); // no two pages alike
    }
    data->setValue(largest);
    write(*data);
    reopen();
    const auto stored = dataObjectAt(0);
    EXPECT_EQ(std::make_tuple(stored->getLabel().value_or(""),
                              stored->getApplicationName().value_or(""),
                              stored->getApplicationOid().value_or(ByteBuffer())),
              std::make_tuple("Container", "p15kit test", oid));
    read(*stored);
    EXPECT_EQ(stored->getValue(), largest);
}

// Two entries of one algorithm: for signing (reference 1), for deciphering (2).
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
    EXPECT_EQ(readFile(tokenInfoId), twoEntries);
}

// The value's UPDATE BINARY fails after the entry went in.
TEST_F(ValueObjectsOnTheCard, AValueTheCardRefusesLeavesNeitherEntryNorFile) {
    const ByteBuffer emptyDodf = readFile(dodfId);
    // The entry goes in with two UPDATE BINARY (its body, then its first
    // byte); the third is the value's.
    virtualCard->instrumentation().injectStatusWord(0xD6, 0x6581, 3);
    EXPECT_CARD_ERROR(write(*newDataObject({0x01, 0x02})), "Update Binary", 0x6581);
    EXPECT_EQ(readFile(dodfId), emptyDodf);
    EXPECT_FALSE(exists(firstDataFile));
}

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

// Nor can the value of a file two entries name be replaced.
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

// A public key joins its private key (read back:
// KeyCommands.AnImportedKeyExportsAsTheFilesPublicKey). An unlisted EC key stays first in
// EF(PrKDF), byte for byte, through the imports and removals after it, which take their key files
// along.
TEST_F(KeysOnTheCard, ImportedKeysOfEverySizeTakeTheirReferencesInTurnAndOtherKindsStay) {
    put(prkdfId, ByteBuffer{0xA0, 0x03, 0x01, 0x02, 0x03});
    const ByteBuffer before = readFile(prkdfId);
    const std::pair<unsigned, unsigned char> imports[] = {
        {1024, 0x81}, {1024, 0x82}, {1536, 0x87}, {2048, 0x8D}};
    for (const auto& [bits, reference] : imports) {
        const auto pair = support::newKeyPair(*factory, "Signing key", support::rsaKey(bits));
        write(*pair.privateKey);
        write(*pair.publicKey);
        const card::service::KeyRef ref = pair.privateKey->getKeyReference();
        const ByteBuffer file{0x0E, static_cast<unsigned char>(reference & 0x7F)};
        EXPECT_EQ(std::make_tuple(ref.keyReference, ref.fileId,
                                  pair.privateKey->getKeyValueReference(),
                                  pair.publicKey->getKeyReference().keyReference),
                  std::make_tuple(reference, file, file, reference));
    }
    reopen();
    const auto keys = repository->getPrivateKeys(*channel);
    const auto publicKeys = repository->getPublicKeys(*channel);
    ASSERT_EQ(keys.size(), 4u);
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

// Refused for room, by the card for the key's values, or by the card for want
// of the PIN: directory files and the first key id's containers as they were.
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

// An entry whose files are gone deletes whole.
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

// Longer, it leaves a hole and goes last; the others stay:
// EntryRewrite.BytesAfterTheEntriesStayUnlessTheEntriesNeedThem. Refused (no
// PIN, too large for EF(AODF) or any entry), it changes nothing. PIN use: PinCommands.
using PinsThroughThePlugin = OnTheCard;
TEST_F(PinsThroughThePlugin, ALabelWrittenChangesItsEntryOnly) {
    const ByteBuffer before = readFile(aodfId);
    const auto pin = [this](std::size_t index) {
        return support::pinAt(*repository, *channel, index);
    };
    const auto user = pin(0), puk = pin(1);
    EXPECT_EQ(commandsOf([&] { write(*user); }), 0u);
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
    EXPECT_EQ(after.get(0, userLength), before.get(0, userLength));
    EXPECT_EQ(after.get(userLength, 1), ByteBuffer{0xD0}) << "a hole where it was";
    EXPECT_EQ(pin(2)->getLabel().value_or(""), "Unblocking PIN");
    EXPECT_EQ(pin(2)->getPinFlags(), puk->getPinFlags());
}

// The host's configuration store, holding at most "plugin.conf".
struct Configuration : plugin::IConfigurationSource {
    explicit Configuration(boost::optional<std::string> text = boost::none)
        : text(std::move(text)) {}
    boost::optional<std::string> readFile(const std::string& name) const override {
        return name == "plugin.conf" ? text : boost::none;
    }
    boost::optional<std::string> text;
};

// Card and applet hosts get one application; an applet host's outlives the
// plugin that made it. Select order: GetApplications.HandsBackOneApplication...
TEST(PluginEndToEnd, HandsTheHostOneApplicationThatOutlivesThePlugin) {
    const support::AppOnCard card(vcard::personalise());
    std::vector<boost::shared_ptr<app::IApplication>> applications;
    {
        const host::PluginLoader loader(P15APP_PATH, Configuration());
        ASSERT_EQ(loader.getApplications(card.card, *card.channel).size(), 1u);
        auto applet =
            boost::make_shared<host::iso7816::Applet>(card.session, host::iso7816::pkcs15Aid());
        applications = loader.getApplications(card.card, applet, *card.channel);
    }
    ASSERT_EQ(applications.size(), 1u);
    EXPECT_NO_THROW(applications[0]->select(*card.channel));
    applications.clear(); // released through the plugin's deleter, library still mapped
}

TEST(PluginEndToEnd, AConfigurationThatLeavesWipingOpenIsRefusedAcrossTheBoundary) {
    const support::AppOnCard card(vcard::personalise());
    const std::string waiting = "[WaitingTime]\nReselect=100\n";
    const host::PluginLoader loader(P15APP_PATH, Configuration(waiting));
    try {
        loader.getApplications(card.card, *card.channel);
        FAIL() << "accepted a configuration without Objects.wipeForce";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("No such node"), std::string::npos) << e.what();
    }
    loader.plugin().configure(Configuration(waiting + "[Objects]\nwipeForce=false\n"));
    EXPECT_EQ(loader.getApplications(card.card, *card.channel).size(), 1u)
        << "the last configuration obtained wins";
}

} // namespace
