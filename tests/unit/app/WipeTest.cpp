#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>

using namespace apptest;

namespace {

const char* const ordinary = "[Objects]\nwipeForce=false\n";
const char* const forced = "[Objects]\nwipeForce=true\n";

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
        const vcard::CardFile& mf = virtualCard->state().files.mf();
        const bool fromMf = path.size() >= 2 && path.get(0) == 0x3F && path.get(1) == 0x00;
        const vcard::CardFile* file = fromMf ? &mf : mf.child(0x5015);
        for (std::size_t at = fromMf ? 2 : 0; file && at + 1 < path.size(); at += 2) {
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
};

// Runs the wipe, expects it to report `count` objects it had to leave and
// returns why it left each.
std::string expectLeft(app::pkcs15::P15Application& application, const card::IChannel& channel,
                       unsigned int count) {
    try {
        application.wipe(channel);
        ADD_FAILURE() << "the wipe reported nothing left";
    } catch (const app::ApplicationException& e) {
        EXPECT_EQ(errorText(e), "wipe left objects on the card");
        const std::string detail = *boost::get_error_info<app::ErrorDetail>(e);
        EXPECT_EQ(*boost::get_error_info<app::ErrorData>(e), count) << detail;
        return detail;
    }
    return "";
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
        const auto application = card.open(force ? forced : ordinary);

        application->wipe(*card.channel);

        for (const Listing& listing : listings) {
            EXPECT_FALSE(card.exists(listing.object)) << mw::toHex(listing.object);
            EXPECT_TRUE(card.empty(listing.directory));
        }
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

// The card refuses the DELETE of each of the four objects in turn.
TEST(Wipe, ARefusedDeleteLeavesThatObjectListedAndRemovesTheRest) {
    for (std::uint64_t refused = 1; refused <= 4; ++refused) {
        SCOPED_TRACE(refused);
        WipeCard card;
        const std::vector<Listing> listings = card.listOneOfEach();
        const auto application = card.open(ordinary);
        card.virtualCard->instrumentation().injectStatusWord(0xE4, 0x6982, refused);

        expectLeft(*application, *card.channel, 1);

        std::size_t remaining = 0;
        for (const Listing& listing : listings) {
            EXPECT_EQ(card.listed(listing), card.exists(listing.object))
                << mw::toHex(listing.object);
            remaining += card.exists(listing.object) ? 1 : 0;
        }
        EXPECT_EQ(remaining, 1u);
    }
}

// A wipe removes only what it allocated. Data object entries naming EF(ODF)
// (from the MF), EF(TokenInfo), EF(DIR), a directory file or a file under a
// path the application never gives, a key entry naming EF(ODF) and an EC key
// (whose file would be the PrKDF itself) stay with their files, saying why.
TEST(Wipe, KeepsStructuralFilesAndWhatItDidNotAllocateSayingWhy) {
    WipeCard card;
    const char* const structural = "a structural file of the application";
    const mw::ByteBuffer ours{0xDF, 0x02, 0x0D, 0x81}, foreign{0x0D, 0x01};
    card.createValueFile(ours);
    card.createValueFile(foreign);
    const struct {
        mw::ByteBuffer named, file; // the path in the entry, the file it reaches
        const char* reason;
    } kept[] = {
        {bytes({0x3F, 0x00, 0x50, 0x31}), odfFile, structural},
        {bytes({0x50, 0x15, 0x50, 0x32}), bytes({0x50, 0x32}), structural},
        {bytes({0x3F, 0x00, 0x2F, 0x00}), bytes({0x3F, 0x00, 0x2F, 0x00}), structural},
        {bytes({0x50, 0x15, 0x44, 0x04}), cdfFile, structural},
        {bytes({0x50, 0x15, 0x0D, 0x01}), foreign, "outside the application's file identifiers"}};
    mw::ByteBuffer entries = dataObjectEntry("ours", ours);
    std::vector<vcard::Bytes> contents;
    for (const auto& each : kept) {
        entries.append(dataObjectEntry("kept", each.named));
        contents.push_back(card.onCard(each.file)->content);
    }
    card.writeFile(dodfFile, entries);
    card.writeFile(prkdfFile, concat({rsaPrivateKeyEntry(0x81, odfFile), ecPrivateKeyEntry()}));
    const vcard::Bytes keys = card.onCard(prkdfFile)->content;
    const auto application = card.open(ordinary);
    card.recorder->clear();

    const std::string detail = expectLeft(*application, *card.channel, std::size(kept) + 2);

    for (std::size_t i = 0; i < std::size(kept); ++i) {
        const std::string line = "EF(DODF) entry " + std::to_string(i + 2) + " (file " +
                                 mw::toHex(kept[i].named) + "): " + kept[i].reason;
        EXPECT_NE(detail.find(line), std::string::npos) << line << " in " << detail;
        EXPECT_EQ(card.onCard(kept[i].file)->content, contents[i]) << mw::toHex(kept[i].file);
    }
    EXPECT_EQ(card.onCard(prkdfFile)->content, keys);
    EXPECT_FALSE(card.exists(ours));
    EXPECT_EQ(card.recorder->sent(0xE4).size(), 1u);
    EXPECT_EQ(card.open()->getDataObjects(*card.channel).size(), std::size(kept));
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
    card.writeFile(odfFile, mw::fromHex("A406 3004 04020D05 A706 3004 04020D06"));

    expectLeft(*card.open(forced), *card.channel, 2);

    EXPECT_TRUE(card.exists(cdfInRange));
    EXPECT_TRUE(card.exists(dodfInRange));
}

} // namespace
