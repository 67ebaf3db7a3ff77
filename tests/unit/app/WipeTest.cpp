#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace apptest;

namespace {

const char* const ordinary = "[Objects]\nwipeForce=false\n";
const char* const forced = "[Objects]\nwipeForce=true\n";
const mw::ByteBuffer prkdfFile{0x44, 0x00};
const mw::ByteBuffer pukdfFile{0x44, 0x01};
const mw::ByteBuffer cdfFile{0x44, 0x04};
const mw::ByteBuffer dodfFile{0x44, 0x07};

// An object on the card and the entry that lists it.
struct Listing {
    mw::ByteBuffer directory;
    mw::ByteBuffer entry;
    mw::ByteBuffer object; // its file, below the application DF
};

// The personalised card with the user PIN verified, and ways to put objects
// on it and to look at its files without sending a command.
struct WipeCard : AppCard {
    WipeCard() {
        card->selectApplication(*channel, host::iso7816::pkcs15Aid());
        verifyPin(0x01, userPin);
    }

    boost::shared_ptr<card::service::IFileSystemService> fileSystem() const {
        return service<card::service::IFileSystemService>("FileSystemService");
    }
    // Files and keys anyone may read, change, delete and use.
    static card::service::AccessConditions openToAll() {
        using namespace card::service;
        return {{AccessRead | AccessUpdate | AccessExecute,
                 boost::make_shared<AlwaysSecurityCondition>()}};
    }
    void createValueFile(const mw::ByteBuffer& path, std::size_t size = 16) const {
        fileSystem()->createFile(*channel,
                                 card::service::DataObjectCreateParams(path, size, openToAll()));
    }
    void createKeyPair(unsigned char reference) const {
        card::service::KeyRef privateKey, publicKey;
        privateKey.keyReference = publicKey.keyReference = reference;
        privateKey.modulusBits = publicKey.modulusBits = 1024;
        fileSystem()->createFile(*channel,
                                 card::service::PrivateKeyCreateParams(privateKey, openToAll()));
        fileSystem()->createFile(*channel,
                                 card::service::PublicKeyCreateParams(publicKey, openToAll()));
        service<card::service::IAsymmetricKeyManagementService>("AsymmetricKeyManagementService")
            ->generateKeyPair(*channel, privateKey, publicKey);
    }
    // One data object, one certificate and one key pair, each listed.
    std::vector<Listing> listOneOfEach() const {
        createValueFile(bytes({0xDF, 0x02, 0x0D, 0x81}));
        createValueFile(bytes({0x0D, 0x01}));
        createKeyPair(0x81);
        const std::vector<Listing> listings = {
            {dodfFile, dataObjectEntry("data", bytes({0xDF, 0x02, 0x0D, 0x81})),
             bytes({0xDF, 0x02, 0x0D, 0x81})},
            {cdfFile, certificateEntry("cert", bytes({0x0D, 0x01})), bytes({0x0D, 0x01})},
            {prkdfFile, rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01})), bytes({0x0E, 0x01})},
            {pukdfFile, rsaPublicKeyEntry(0x81, bytes({0x0F, 0x01})), bytes({0x0F, 0x01})}};
        for (const Listing& listing : listings) {
            writeFile(listing.directory, listing.entry);
        }
        return listings;
    }

    // A file by its path below the application DF (or from the MF, 3F00...).
    const vcard::CardFile* onCard(const mw::ByteBuffer& path) const {
        const vcard::CardFile* file = &virtualCard->state().files.mf();
        std::size_t at = 0;
        if (path.size() >= 2 && path.get(0) == 0x3F && path.get(1) == 0x00) {
            at = 2;
        } else {
            file = file->child(0x5015);
        }
        for (; file && at + 1 < path.size(); at += 2) {
            file = file->child(static_cast<std::uint16_t>(path.get(at) << 8 | path.get(at + 1)));
        }
        return file;
    }
    bool exists(const mw::ByteBuffer& path) const { return onCard(path) != nullptr; }
    bool listed(const Listing& listing) const {
        const vcard::Bytes& content = onCard(listing.directory)->content;
        return std::search(content.begin(), content.end(), listing.entry.begin(),
                           listing.entry.end()) != content.end();
    }
    bool empty(const mw::ByteBuffer& directory) const {
        const vcard::Bytes& content = onCard(directory)->content;
        return std::all_of(content.begin(), content.end(), [](std::uint8_t b) { return b == 0; });
    }
    void expectGone(const std::vector<Listing>& listings) const {
        for (const Listing& listing : listings) {
            EXPECT_FALSE(exists(listing.object)) << mw::toHex(listing.object);
            EXPECT_TRUE(empty(listing.directory));
        }
    }
};

// Runs the wipe and expects it to report `count` objects it had to leave.
void expectLeft(app::pkcs15::P15Application& application, const card::IChannel& channel,
                unsigned int count) {
    try {
        application.wipe(channel);
        ADD_FAILURE() << "the wipe reported nothing left";
    } catch (const app::ApplicationException& e) {
        EXPECT_EQ(errorText(e), "wipe left objects on the card");
        EXPECT_EQ(*boost::get_error_info<app::ErrorData>(e), count)
            << *boost::get_error_info<app::ErrorDetail>(e);
    }
}

// Both wipes remove what the directories list and keep the PINs; only the
// forced one clears the ranges, up to their last identifier.
TEST(Wipe, RemovesWhatIsListedAndWhenForcedTheRangesToTheirLastIdentifier) {
    for (bool force : {false, true}) {
        SCOPED_TRACE(force);
        WipeCard card;
        const std::vector<Listing> listings = card.listOneOfEach();
        card.createValueFile(bytes({0x0D, 0x80}));
        card.createValueFile(bytes({0xDF, 0x02, 0xC0, 0x3F}));
        card.createKeyPair(0x92); // the last 2048-bit key id, never listed
        const vcard::Bytes pins = card.onCard(bytes({0x44, 0x08}))->content;
        const auto application = card.application(force ? forced : ordinary);

        application->wipe(*card.channel);

        card.expectGone(listings);
        for (const mw::ByteBuffer& unlisted : {bytes({0x0D, 0x80}), bytes({0xDF, 0x02, 0xC0, 0x3F}),
                                               bytes({0x0E, 0x12}), bytes({0x0F, 0x12})}) {
            EXPECT_NE(card.exists(unlisted), force) << mw::toHex(unlisted);
        }
        EXPECT_EQ(card.onCard(bytes({0x44, 0x08}))->content, pins);
        EXPECT_TRUE(application->getODF()->getDODF()->values(*card.channel).empty());
    }
}

TEST(Wipe, ForcedWipeInAppletModeRemovesEveryKeyByItsReference) {
    WipeCard card;
    card.createKeyPair(0x80);
    card.createKeyPair(0x81);
    card.createKeyPair(0x9F);
    card.createValueFile(bytes({0x0D, 0xFF}));
    const Listing listed{prkdfFile, rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01})),
                         bytes({0x0E, 0x01})};
    card.writeFile(prkdfFile, listed.entry);

    card.appletApplication(forced)->wipe(*card.channel);

    for (const mw::ByteBuffer& gone :
         {bytes({0x0E, 0x00}), bytes({0x0F, 0x00}), bytes({0x0E, 0x01}), bytes({0x0F, 0x01}),
          bytes({0x0E, 0x1F}), bytes({0x0F, 0x1F}), bytes({0x0D, 0xFF})}) {
        EXPECT_FALSE(card.exists(gone)) << mw::toHex(gone);
    }
    EXPECT_TRUE(card.empty(prkdfFile));
}

class RefusedDelete : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(RefusedDelete, LeavesThatObjectListedAndRemovesTheRest) {
    WipeCard card;
    const std::vector<Listing> listings = card.listOneOfEach();
    const auto application = card.application(ordinary);
    card.virtualCard->instrumentation().injectStatusWord(0xE4, 0x6982, GetParam());

    expectLeft(*application, *card.channel, 1);

    std::size_t remaining = 0;
    for (const Listing& listing : listings) {
        EXPECT_EQ(card.listed(listing), card.exists(listing.object)) << mw::toHex(listing.object);
        remaining += card.exists(listing.object) ? 1 : 0;
    }
    EXPECT_EQ(remaining, 1u);
}

INSTANTIATE_TEST_SUITE_P(EachOfFourObjects, RefusedDelete, ::testing::Values(1, 2, 3, 4));

TEST(Wipe, NeverDeletesStructuralForeignOrUnknownObjects) {
    WipeCard card;
    const Listing tokenInfo{dodfFile, dataObjectEntry("tokeninfo", bytes({0x50, 0x32})),
                            bytes({0x50, 0x32})};
    const Listing dir{dodfFile, dataObjectEntry("dir", bytes({0x3F, 0x00, 0x2F, 0x00})),
                      bytes({0x3F, 0x00, 0x2F, 0x00})};
    const Listing odfAsKey{prkdfFile, rsaPrivateKeyEntry(0x81, bytes({0x50, 0x31})),
                           bytes({0x50, 0x31})};
    const Listing ecKey{prkdfFile, ecPrivateKeyEntry(), prkdfFile};
    card.createValueFile(bytes({0xDF, 0x02, 0x0D, 0x81}));
    const Listing ours{dodfFile, dataObjectEntry("ours", bytes({0xDF, 0x02, 0x0D, 0x81})),
                       bytes({0xDF, 0x02, 0x0D, 0x81})};
    card.writeFile(dodfFile, concat({tokenInfo.entry, ours.entry, dir.entry}));
    card.writeFile(prkdfFile, concat({odfAsKey.entry, ecKey.entry}));
    const auto application = card.application(ordinary);
    card.recorder->clear();

    expectLeft(*application, *card.channel, 4);

    for (const Listing& kept : {tokenInfo, dir, odfAsKey, ecKey}) {
        EXPECT_TRUE(card.listed(kept));
        EXPECT_TRUE(card.exists(kept.object));
    }
    EXPECT_FALSE(card.listed(ours));
    EXPECT_FALSE(card.exists(ours.object));
    EXPECT_EQ(card.recorder->sent(0xE4).size(), 1u);
}

// Directory files EF(ODF) places inside a value range stay: the one an entry
// names and the one only a forced wipe's sweep of the range meets.
TEST(Wipe, KeepsDirectoryFilesPlacedInsideAValueRange) {
    WipeCard card;
    const mw::ByteBuffer cdfInRange{0x0D, 0x05}, dodfInRange{0x0D, 0x06};
    card.createValueFile(cdfInRange, 64);
    card.createValueFile(dodfInRange);
    card.writeFile(cdfInRange, certificateEntry("itself", cdfInRange));
    card.verifyPin(0x03, soPin);
    card.writeFile(bytes({0x50, 0x31}), mw::fromHex("A406 3004 04020D05 A706 3004 04020D06"));

    expectLeft(*card.application(forced), *card.channel, 2);

    EXPECT_TRUE(card.exists(cdfInRange));
    EXPECT_TRUE(card.exists(dodfInRange));
}

// Deleting one key through the repository never takes the files another
// key uses: those of a key under the card's own reference (01 maps to no
// file of the application), those a second entry of the same reference
// still names; and a key whose files are already gone deletes whole.
TEST(KeyRemoval, DeletesOnlyKeyFilesOfTheApplicationThatNoEntryStillNames) {
    WipeCard card;
    card.createKeyPair(0x81);
    const mw::ByteBuffer own{0x3F, 0x00, 0x50, 0x15, 0x4B, 0x01};
    card.writeFile(prkdfFile, concat({rsaPrivateKeyEntry(0x01, own),
                                      rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01})),
                                      rsaPrivateKeyEntry(0x81, bytes({0x3F, 0xFF, 0x0E, 0x01})),
                                      rsaPrivateKeyEntry(0x82, bytes({0x0E, 0x02}))}));
    card.writeFile(pukdfFile, concat({rsaPublicKeyEntry(0x01, own),
                                      rsaPublicKeyEntry(0x82, bytes({0x0F, 0x02}))}));
    const auto application = card.application();
    const auto removeFirst = [&] {
        const auto& keys = application->getPrivateKeys(*card.channel);
        const bool withPublic = keys.front()->getKeyReference().keyReference != 0x81;
        application->deleteCardObject(*card.channel, *keys.front());
        if (withPublic) {
            application->deleteCardObject(*card.channel,
                                          *application->getPublicKeys(*card.channel).front());
        }
    };

    removeFirst(); // the card's own key
    removeFirst(); // one of two entries of 81
    EXPECT_TRUE(card.exists(bytes({0x0E, 0x01})));
    EXPECT_TRUE(card.exists(bytes({0x0F, 0x01})));
    removeFirst(); // the last entry of 81
    EXPECT_FALSE(card.exists(bytes({0x0E, 0x01})));
    EXPECT_FALSE(card.exists(bytes({0x0F, 0x01})));
    removeFirst(); // 82, whose files were never made
    EXPECT_TRUE(card.empty(prkdfFile));
    EXPECT_TRUE(card.empty(pukdfFile));
}

} // namespace
