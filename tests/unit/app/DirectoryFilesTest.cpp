// Directory files as the application reads and rewrites them: where EF(ODF)
// locates them, how much of each is read, and which bytes a changed entry
// writes, in which order.
#include "AppCard.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>

using namespace apptest;
namespace fs = app::pkcs15::fs;
using fs::P15File;

namespace {

// An entry: `tag`, the length of `length` in its shortest form, and `length`
// copies of `marker`.
mw::ByteBuffer tlv(unsigned char marker, std::size_t length, unsigned char tag = 0x30) {
    mw::ByteBuffer encoded;
    host::iso7816::appendTlv(encoded, tag,
                             mw::ByteBuffer(std::vector<unsigned char>(length, marker)));
    return encoded;
}

class Directories : public ::testing::Test {
protected:
    mw::ByteBuffer fileIdOf(P15File::FileId kind) const {
        return application_->getODF()->getFileId(*card_.channel, *card_.files(), kind);
    }
    // Replaces EF(ODF) on the card (the SO PIN guards it).
    void writeOdf(const mw::ByteBuffer& content) {
        card_.verifyPin(0x03, soPin);
        card_.writeFile(odfFile, content);
        application_->clearCache();
    }

    AppCard card_;
    boost::shared_ptr<app::pkcs15::P15Application> application_ = card_.open();
};

// What EF(ODF) lists, read in the forms cards write it: padding (00 or FF)
// ends the entries, an entry giving objects instead of a path is passed over;
// EF(TokenInfo) is never listed there. An entry outside the five kinds
// (trustedCertificates [5]) fails the read, retried until the file is mended;
// EF(ODF) read again once a directory file went stale drops the kinds it no
// longer lists and keeps the others.
TEST_F(Directories, EfOdfIsReadUpToItsPaddingTakingPathsOnly) {
    EXPECT_EQ(fileIdOf(P15File::DODF), dodfFile);
    EXPECT_TRUE(fileIdOf(P15File::TokenInfo).empty());
    // clang-format off
    const std::tuple<const char*, P15File::FileId, mw::ByteBuffer> rows[] = {
        {"00 A806 3004 04024408", P15File::AODF, {}},
        {"A804 A0023000 A006 3004 04024400", P15File::AODF, {}},
        {"A804 A0023000 A006 3004 04024400", P15File::PrKDF, prkdfFile},
        {"A406 3004 04024404 FFFF", P15File::CDF, cdfFile}};
    // clang-format on
    for (const auto& [odf, kind, expected] : rows) {
        writeOdf(mw::fromHex(odf));
        EXPECT_EQ(fileIdOf(kind), expected) << odf;
    }
    writeOdf(mw::fromHex("A506 3004 04024405 A406 3004 04024404"));
    EXPECT_THROW(fileIdOf(P15File::CDF), app::InvalidDataException);
    EXPECT_THROW(fileIdOf(P15File::CDF), app::InvalidDataException) << "a failed read is retried";
    card_.writeFile(odfFile, mw::fromHex("A406 3004 04024404"));
    EXPECT_EQ(fileIdOf(P15File::CDF), cdfFile);
    card_.writeFile(odfFile, mw::fromHex("A006 3004 04024400 A706 3004 04024407"));
    application_->getODF()->getCDF()->clearContent();
    EXPECT_TRUE(fileIdOf(P15File::CDF).empty());
    EXPECT_EQ(fileIdOf(P15File::DODF), dodfFile);
}

// How much of a directory file the application reads: its entries and the
// byte after them, never the padding beyond.
constexpr std::size_t prkdfSize = 4096;

// An entry of a key kind the application does not interpret (context tag
// [5]), exactly `total` bytes long, so that entries can end anywhere.
mw::ByteBuffer unknownEntry(std::size_t total) {
    return tlv(0x11, total - (total > 255 + 3 ? 4 : total > 127 + 2 ? 3 : 2), 0xA5);
}

// Per layout of entries and padding: READ BINARY commands with short APDUs
// only and with extended length. The padding byte that ends the entries may
// start the next chunk; without padding the last entry ends with the file.
TEST(DirectoryRead, StopsAtTheEndOfTheEntries) {
    const struct {
        std::vector<std::size_t> entries; // lengths, in file order
        unsigned char padding;
        std::size_t shortReads, extendedReads;
    } layouts[] = {{{100, 155}, 0x00, 1, 1},
                   {{100, 156}, 0x00, 2, 2},
                   {{200, 300}, 0xFF, 2, 2},
                   {{1000}, 0x00, 4, 2},
                   {{1024, 1024, 1024, 1024}, 0x00, 16, 4}};
    for (const auto& layout : layouts) {
        for (bool extended : {false, true}) {
            SCOPED_TRACE(::testing::PrintToString(layout.entries) + (extended ? " extended" : ""));
            AppCard card;
            card.virtualCard->setExtendedLength(extended);
            const auto application = card.open();
            mw::ByteBuffer content;
            for (std::size_t length : layout.entries) {
                content.append(unknownEntry(length));
            }
            mw::ByteBuffer file(prkdfSize);
            std::fill(file.begin(), file.end(), layout.padding);
            std::copy(content.begin(), content.end(), file.begin());
            card.verifyPin(0x01, userPin);
            card.writeFile(prkdfFile, file);

            const auto& odf = application->getODF();
            const auto& prkdf = odf->getPrKDF();
            odf->getFileId(*card.channel, *card.files(), P15File::PrKDF);
            card.recorder->clear();
            EXPECT_EQ(prkdf->entries(*card.channel).size(), layout.entries.size());
            EXPECT_EQ(prkdf->contentLength(*card.channel), content.size());
            EXPECT_EQ(prkdf->fileSize(*card.channel), prkdfSize)
                << "room checks need the file's size";
            EXPECT_EQ(card.recorder->sent(0xB0).size(),
                      extended ? layout.extendedReads : layout.shortReads);
            EXPECT_EQ(card.recorder->sent(0xA4).size(), 1u);
        }
    }
}

// Offset and data of an UPDATE BINARY command.
std::pair<std::size_t, mw::ByteBuffer> updateOf(const mw::ByteBuffer& command) {
    const std::size_t offset = (command.get(2) << 8) | command.get(3);
    return {offset, command.get(5, command.get(4))};
}

class EntryRewrite : public ::testing::Test {
protected:
    void SetUp() override {
        card_.verifyPin(0x01, userPin);
        card_.writeFile(prkdfFile, concat({first_, ecPrivateKeyEntry(), last_}));
        application_->clearCache();
    }

    const fs::PrKDF& prkdf() const { return *application_->getODF()->getPrKDF(); }

    AppCard card_;
    boost::shared_ptr<app::pkcs15::P15Application> application_ = card_.open();
    const app::pkcs15::P15Application::ChannelScope bound_{*application_, *card_.channel};
    const mw::ByteBuffer first_ = rsaPrivateKeyEntry(0x81, bytes({0x0E, 0x01}));
    const mw::ByteBuffer last_ = rsaPrivateKeyEntry(0x82, bytes({0x0E, 0x02}));
};

TEST_F(EntryRewrite, BytesAfterTheEntriesStayUnlessTheEntriesNeedThem) {
    const mw::ByteBuffer entries = concat({first_, ecPrivateKeyEntry(), last_});
    mw::ByteBuffer junk(64); // left behind by some other writer; reads like entries
    std::fill(junk.begin(), junk.end(), 0x5A);
    card_.writeFile(prkdfFile, concat({entries, bytes({0xFF, 0xFF, 0xFF}), junk}));
    application_->clearCache();
    const mw::ByteBuffer before = card_.readFile(prkdfFile);

    // A removed entry with entries after it leaves a hole of its length.
    prkdf().updateEncodedAttributes(first_, mw::ByteBuffer());
    mw::ByteBuffer shrunk = before;
    shrunk.data()[0] = 0xD0;
    std::fill(shrunk.begin() + 2, shrunk.begin() + first_.size(), 0x00);
    EXPECT_EQ(card_.readFile(prkdfFile), shrunk) << "the bytes after the entries stay";
    const std::size_t used = entries.size();

    // Longer than the padding: the new entry runs into the junk, which must
    // then be cut off by one padding byte and otherwise stay.
    const mw::ByteBuffer added = rsaPrivateKeyEntry(0x83, bytes({0x0E, 0x03}));
    ASSERT_GT(added.size(), 3u);
    card_.recorder->clear();
    prkdf().updateEncodedAttributes(mw::ByteBuffer(), added);
    mw::ByteBuffer grown = shrunk;
    std::copy(added.begin(), added.end(), grown.begin() + used);
    grown.data()[used + added.size()] = 0xFF;
    EXPECT_EQ(card_.readFile(prkdfFile), grown);
    // The appended bytes first, the byte that makes them an entry last.
    const std::vector<mw::ByteBuffer> updates = card_.recorder->sent(0xD6);
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_EQ(updateOf(updates[0]).first, used + 1);
    EXPECT_EQ(updateOf(updates[0]).second.size(), added.size());
    EXPECT_EQ(updateOf(updates[1]).first, used);
    EXPECT_EQ(updateOf(updates[1]).second, bytes({added.get(0)}));

    prkdf().clearContent();
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 3u);
}

// An entry not in the file, and the card refusing the write (no PIN): the
// file and the cache stay as they were. (An entry too big for the file:
// ValueObjectsOnTheCard.AnEntryExactlyFillingEfCdfIsWrittenAndOneByteMoreIsRefused.)
TEST_F(EntryRewrite, RefusalsLeaveTheFileAndTheCacheAsTheyWere) {
    const mw::ByteBuffer before = card_.readFile(prkdfFile);
    EXPECT_APP_ERROR(
        prkdf().updateEncodedAttributes(rsaPrivateKeyEntry(0x99, bytes({0x0E, 0x09})), first_),
        app::ApplicationException, "unable to update encoded attributes for requested file id");
    EXPECT_EQ(card_.readFile(prkdfFile), before);

    card_.service<card::service::IPinManagementService>("PinManagementService")
        ->deauthenticate(*card_.channel, hosttest::pinReference(0x01));
    EXPECT_THROW(prkdf().updateEncodedAttributes(mw::ByteBuffer(), last_), card::CardException);
    EXPECT_EQ(prkdf().values(*card_.channel).size(), 3u);
}

// The entries a reader finds but `skipped`: holes skipped, the first padding
// byte ends them.
std::vector<mw::ByteBuffer> entriesOf(const mw::ByteBuffer& content,
                                      const std::vector<mw::ByteBuffer>& skipped = {}) {
    std::vector<mw::ByteBuffer> found;
    std::size_t offset = 0;
    while (offset < content.size() && !fs::P15File::isPadding(content.get(offset))) {
        std::size_t value = 0;
        std::size_t end = 0;
        if (fs::EntryLayout::tlvHeader(content.data(), content.size(), offset, value, end) !=
                fs::EntryLayout::Header::complete ||
            end > content.size()) {
            throw std::runtime_error("entries torn at " + std::to_string(offset));
        }
        const mw::ByteBuffer entry = content.get(offset, end - offset);
        if (!fs::EntryLayout::isHole(content.get(offset)) &&
            std::find(skipped.begin(), skipped.end(), entry) == skipped.end()) {
            found.push_back(entry);
        }
        offset = end;
    }
    return found;
}

struct LayoutCase {
    std::vector<int> lengths; // of the entries before; a hole where negative
    int changed;              // the entry replaced or removed, -1 to add
    std::size_t newLength;    // 0 to remove
    std::size_t fileSize;
    bool holesAllowed;
    // 's': never torn; 't': rewritten where it stands, a cut may tear the
    // changed entry alone; 'p': no room beside the holes, packed in one write.
    char cuts;
};

// Every prefix of every write, as a card losing power may leave it, keeps the
// other entries readable and in their order; the changed one is old, new or gone.
TEST(EntryLayoutTest, EveryCutKeepsTheEntriesTheChangeDoesNotTouch) {
    // clang-format off
    const std::vector<LayoutCase> cases = {
        {{6, 8, 10}, 1, 0, 64, true, 's'},  {{6, 8, 10}, 0, 0, 64, true, 's'},
        {{6, 8, 10}, 2, 0, 64, true, 's'},  {{6, 8, 10}, -1, 12, 64, true, 's'},
        {{6, 8, 10}, 1, 20, 64, true, 's'}, {{6, 8, 10}, 0, 3, 64, true, 's'},
        {{6, 8, 10}, 1, 8, 64, true, 't'},  {{6, 8, 10}, 2, 30, 64, true, 't'},
        {{6, 8, 10}, 2, 4, 64, true, 't'},  {{6, 8, 126}, 2, 128, 300, true, 's'},
        {{6, 300}, 1, 520, 1024, true, 's'}, {{6, 300}, 0, 4, 1024, true, 's'},
        {{40}, 0, 44, 64, false, 't'},      {{40}, 0, 100, 256, false, 't'},
        {{6, -20, 10, -20}, -1, 25, 70, true, 's'}, {{6, -20, 10, -20}, 2, 25, 70, true, 't'},
        {{6, -20, 10}, 0, 12, 64, true, 's'}, {{6, -20, 10}, -1, 40, 70, true, 'p'},
        {{6, 8, 10}, 0, 30, 64, false, 'p'}};
    // clang-format on
    for (const LayoutCase& c : cases) {
        SCOPED_TRACE("case " + std::to_string(&c - cases.data()));
        std::vector<mw::ByteBuffer> kept;
        mw::ByteBuffer content, old;
        std::size_t offset = 0;
        for (std::size_t i = 0; i < c.lengths.size(); ++i) {
            const bool hole = c.lengths[i] < 0;
            mw::ByteBuffer entry = tlv(static_cast<unsigned char>(0x11 * (i + 1)),
                                       static_cast<std::size_t>(std::abs(c.lengths[i])));
            entry.data()[0] = hole ? 0xD0 : 0x30;
            if (static_cast<int>(i) == c.changed) {
                offset = content.size();
                old = entry;
            } else if (!hole) {
                kept.push_back(entry);
            }
            content.append(entry);
        }
        const std::size_t used = content.size();
        content.append(mw::ByteBuffer(std::vector<unsigned char>(c.fileSize - used, 0xFF)));
        const mw::ByteBuffer added = c.newLength ? tlv(0xEE, c.newLength) : mw::ByteBuffer();
        fs::EntryLayout layout(content, used, c.fileSize, c.holesAllowed);
        layout.replace(c.changed < 0 ? used : offset, old.size(), added);
        mw::ByteBuffer card = content;
        for (const auto& write : layout.writes()) {
            for (std::size_t cut = 0; cut <= write.data.size() && c.cuts != 'p'; ++cut) {
                mw::ByteBuffer torn = card;
                std::copy(write.data.begin(), write.data.begin() + cut,
                          torn.begin() + write.offset);
                std::vector<mw::ByteBuffer> found = entriesOf(torn, {old, added});
                for (std::size_t i = 0;
                     c.cuts == 't' && found.size() == kept.size() + 1 && i < found.size(); ++i) {
                    std::vector<mw::ByteBuffer> untorn = found;
                    untorn.erase(untorn.begin() + i);
                    found = untorn == kept ? untorn : found;
                }
                EXPECT_EQ(found, kept) << "write at " << write.offset << " cut after " << cut;
            }
            std::copy(write.data.begin(), write.data.end(), card.begin() + write.offset);
        }
        EXPECT_EQ(card, layout.content());
        const std::vector<mw::ByteBuffer> after = entriesOf(card);
        EXPECT_EQ(entriesOf(card, {old, added}), kept);
        EXPECT_EQ(std::make_pair(std::count(after.begin(), after.end(), added),
                                 std::count(after.begin(), after.end(), old)),
                  (std::pair<std::ptrdiff_t, std::ptrdiff_t>(added.empty() ? 0 : 1, 0)));
    }
}

} // namespace
