#include "host/iso7816/FileAccessService.hpp"

#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "mw/Exception.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

constexpr std::size_t maxOffset = 0x7FFF;

unsigned char offsetHigh(std::size_t offset) {
    if (offset > maxOffset) {
        MW_THROW(mw::IllegalArgumentException, "file offset beyond 7FFF");
    }
    return static_cast<unsigned char>(offset >> 8);
}

unsigned char offsetLow(std::size_t offset) {
    return static_cast<unsigned char>(offset);
}

// Refused before the first command: no EF holds a byte past offset 7FFF.
void checkReadRange(std::size_t offset, std::size_t length) {
    if (offset > maxOffset || length > maxOffset + 1 - offset) {
        MW_THROW(mw::IllegalArgumentException, "file range beyond offset 7FFF");
    }
}

} // namespace

FileAccessService::FileAccessService(boost::shared_ptr<FileSelection> selection)
    : selection_(std::move(selection)) {}

mw::ByteBuffer FileAccessService::readChunk(const card::IChannel& channel, std::size_t offset,
                                            std::size_t length) const {
    return IsoCommand("Read Binary", 0xB0, offsetHigh(offset), offsetLow(offset))
        .extendedLength(selection_->extendedLength(channel))
        .expecting(length)
        .executeExact(channel);
}

mw::ByteBuffer FileAccessService::read(const card::IChannel& channel, std::size_t offset,
                                       std::size_t length) const {
    card::Transaction transaction(channel);
    selection_->followReset(channel);
    if (length == 0) {
        const std::size_t fileSize = size(channel);
        length = offset < fileSize ? fileSize - offset : 0;
    }
    if (length != 0) {
        checkReadRange(offset, length);
    }
    return selection_->onCurrentFile([&] {
        mw::ByteBuffer content;
        for (std::size_t done = 0; done < length;) {
            const std::size_t chunk = std::min(maxReadLength(channel), length - done);
            content.append(readChunk(channel, offset + done, chunk));
            done += chunk;
        }
        return content;
    });
}

void FileAccessService::select(const card::IChannel& channel,
                               const mw::ByteBuffer& fileIdOrPath) const {
    card::Transaction transaction(channel);
    selection_->select(channel, fileIdOrPath);
}

void FileAccessService::update(const card::IChannel& channel, std::size_t offset,
                               const mw::ByteBuffer& data) const {
    if (data.empty()) {
        return;
    }
    card::Transaction transaction(channel);
    selection_->followReset(channel);
    selection_->onCurrentFile([&] {
        IsoCommand("Update Binary", 0xD6, offsetHigh(offset), offsetLow(offset))
            .withData(data)
            .extendedLength(selection_->extendedLength(channel))
            .execute(channel);
    });
}

std::size_t FileAccessService::maxReadLength(const card::IChannel& channel) const {
    return longestAnswer(selection_->extendedLength(channel));
}

std::size_t FileAccessService::size(const card::IChannel&) const {
    const Fcp& file = selection_->currentFile();
    if (!file.isTransparentEf()) {
        CARD_THROW(card::CardException()
                   << card::ErrorText("the selected file is not a transparent EF"));
    }
    return file.size;
}

} // namespace iso7816
} // namespace host
