// How much of a directory file the application reads: its entries and the
// byte after them, never the padding beyond.
#include "AppCard.hpp"

#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "vcard/VirtualCard.hpp"

#include <gtest/gtest.h>
#include <numeric>

using namespace apptest;
using app::pkcs15::fs::P15File;

namespace {

const mw::ByteBuffer prkdfFile{0x44, 0x00};
constexpr std::size_t prkdfSize = 4096;

// An entry of a key kind the application does not interpret (context tag
// [5]), exactly `total` bytes long, so that entries can end anywhere.
mw::ByteBuffer unknownEntry(std::size_t total) {
    const std::size_t header = total > 255 + 3 ? 4 : total > 127 + 2 ? 3 : 2;
    const std::size_t length = total - header;
    mw::ByteBuffer entry{0xA5};
    if (header == 4) {
        entry.append(mw::ByteBuffer{0x82, static_cast<unsigned char>(length >> 8)});
    } else if (header == 3) {
        entry.append(0x81);
    }
    entry.append(static_cast<unsigned char>(length));
    entry.append(mw::ByteBuffer(length));
    std::fill(entry.end() - length, entry.end(), 0x11);
    return entry;
}

struct Layout {
    const char* name;
    std::vector<std::size_t> entries; // lengths, in file order
    unsigned char padding;
    std::size_t shortReadCommands;    // READ BINARY commands, short APDUs only
    std::size_t extendedReadCommands; // with extended length
};

void PrintTo(const Layout& layout, std::ostream* out) {
    *out << layout.name;
}

class DirectoryRead : public ::testing::TestWithParam<std::tuple<Layout, bool>> {};

TEST_P(DirectoryRead, StopsAtTheEndOfTheEntries) {
    const auto& [layout, extended] = GetParam();
    AppCard card;
    card.virtualCard->setExtendedLength(extended);
    const auto application = card.application();
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
    EXPECT_EQ(prkdf->fileSize(*card.channel), prkdfSize) << "room checks need the file's size";
    EXPECT_EQ(card.recorder->sent(0xB0).size(),
              extended ? layout.extendedReadCommands : layout.shortReadCommands);
    EXPECT_EQ(card.recorder->sent(0xA4).size(), 1u);

    // A longer last entry whose header grows goes behind the entries, past
    // what was read, and leaves a hole where it was.
    const mw::ByteBuffer last = prkdf->entries(*card.channel).back().encoding;
    const mw::ByteBuffer grown = unknownEntry(last.size() + 300);
    if (content.size() + grown.size() < prkdfSize) {
        const app::pkcs15::P15Application::ChannelScope bound(*application, *card.channel);
        prkdf->updateEncodedAttributes(last, grown);
        const std::size_t at = content.size() - last.size();
        const std::size_t header = (last.get(1) & 0x80) ? 2 + (last.get(1) & 0x7F) : 2;
        file.data()[at] = 0xC5;
        std::fill(file.begin() + at + header, file.begin() + content.size(), 0x00);
        std::copy(grown.begin(), grown.end(), file.begin() + content.size());
        EXPECT_EQ(card.readFile(prkdfFile), file);
        EXPECT_EQ(prkdf->entries(*card.channel).size(), layout.entries.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, DirectoryRead,
    ::testing::Combine(
        ::testing::Values(Layout{"OneChunk", {100, 155}, 0x00, 1, 1},
                          // The padding byte that ends the entries starts the next chunk.
                          Layout{"EndsAtChunkEnd", {100, 156}, 0x00, 2, 2},
                          Layout{"EntryAcrossChunks", {200, 300}, 0xFF, 2, 2},
                          Layout{"LongEntryReadWhole", {1000}, 0x00, 4, 2},
                          // No padding at all: the last entry ends with the file.
                          Layout{"FullFile", {1024, 1024, 1024, 1024}, 0x00, 16, 4}),
        ::testing::Bool()),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) +
               (std::get<1>(info.param) ? "Extended" : "Short");
    });

} // namespace
