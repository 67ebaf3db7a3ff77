#include "host/iso7816/FileAccessService.hpp"

#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Exception.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

// The even INS carries the offset in 15 bits of P1-P2 (bit 8 of P1 set
// announces a short EF identifier); beyond it, the odd INS carries it in an
// offset data object and the file's bytes travel in a discretionary one.
constexpr std::size_t maxPlainOffset = 0x7FFF;
constexpr unsigned int offsetTag = 0x54;
constexpr unsigned int discretionaryDataTag = 0x53;
// The most an odd-INS READ BINARY answer adds to the bytes: 53 82 xx xx.
constexpr std::size_t discretionaryHeaderSize = 4;
const char* const readBinaryName = "Read Binary";
// Some drivers frame a command and an answer with a 16-bit length: an
// extended READ or UPDATE BINARY stays within 65535 bytes on the wire.
constexpr std::size_t maxFramedApdu = 0xFFFF;
constexpr std::size_t statusWordSize = 2;
// CLA INS P1 P2 and an extended Lc.
constexpr std::size_t extendedCommandHeaderSize = 7;

// Refused before the first command: no EF holds a byte past offset FFFE.
void checkRange(std::size_t offset, std::size_t length) {
    if (offset > Fcp::maxEfSize || length > Fcp::maxEfSize - offset) {
        MW_THROW(mw::IllegalArgumentException, "file range beyond offset FFFE");
    }
}

bool needsOddIns(std::size_t offset) {
    return offset > maxPlainOffset;
}

// READ or UPDATE BINARY at `offset`, in the even form while P1-P2 can carry
// the offset, else in the odd form (INS + 1) on the current EF. Data too
// long for one framed APDU goes as short parts of a chain, which the card
// still stores in one step.
IsoCommand binaryCommand(const char* name, unsigned char evenIns, std::size_t offset,
                         const mw::ByteBuffer& data, bool extendedLength) {
    const auto high = static_cast<unsigned char>(offset >> 8);
    const auto low = static_cast<unsigned char>(offset);
    mw::ByteBuffer body;
    unsigned char ins = evenIns;
    if (needsOddIns(offset)) {
        appendTlv(body, offsetTag, mw::ByteBuffer{high, low});
        if (!data.empty()) {
            appendTlv(body, discretionaryDataTag, data);
        }
        ins = static_cast<unsigned char>(evenIns + 1);
    } else {
        body = data;
    }
    const bool fitsOneApdu = extendedCommandHeaderSize + body.size() <= maxFramedApdu;
    const bool odd = ins != evenIns;
    return IsoCommand(name, ins, odd ? 0x00 : high, odd ? 0x00 : low)
        .withData(std::move(body))
        .extendedLength(extendedLength && fitsOneApdu);
}

std::size_t wrappedSize(std::size_t length) {
    mw::ByteBuffer header;
    appendTag(header, discretionaryDataTag);
    appendLength(header, length);
    return header.size() + length;
}

// The bytes of an odd-INS READ BINARY answer: exactly one data object 53
// holding exactly the bytes asked for.
mw::ByteBuffer unwrapDiscretionaryData(const mw::ByteBuffer& answer, std::size_t length) {
    return parseAnswerOf(readBinaryName, [&] {
        const Tlv data = expectTlv(answer, discretionaryDataTag);
        if (data.length != length || data.end() != answer.size()) {
            CARD_THROW(card::InvalidDataException()
                       << card::ErrorText("card answered another length than asked for"));
        }
        return tlvValue(answer, data);
    });
}

} // namespace

FileAccessService::FileAccessService(boost::shared_ptr<FileSelection> selection)
    : selection_(std::move(selection)) {}

mw::ByteBuffer FileAccessService::readChunk(const card::Transaction& held, std::size_t offset,
                                            std::size_t length) const {
    const std::size_t expected = needsOddIns(offset) ? wrappedSize(length) : length;
    mw::ByteBuffer answer = binaryCommand(readBinaryName, 0xB0, offset, mw::ByteBuffer(),
                                          selection_->extendedLength(held.transport()))
                                .expecting(expected)
                                .executeExact(held);
    return needsOddIns(offset) ? unwrapDiscretionaryData(answer, length) : answer;
}

mw::ByteBuffer FileAccessService::read(const card::IChannel& channel, std::size_t offset,
                                       std::size_t length) const {
    const auto held = card::Transaction::join(channel);
    selection_->followReset(held);
    if (length == 0) {
        const std::size_t fileSize = size(channel);
        length = offset < fileSize ? fileSize - offset : 0;
    }
    if (length != 0) {
        checkRange(offset, length);
    }
    return selection_->onCurrentFile([&] {
        mw::ByteBuffer content;
        for (std::size_t done = 0; done < length;) {
            const std::size_t room =
                maxReadLength(channel) - (needsOddIns(offset + done) ? discretionaryHeaderSize : 0);
            const std::size_t chunk = std::min(room, length - done);
            content.append(readChunk(held, offset + done, chunk));
            done += chunk;
        }
        return content;
    });
}

void FileAccessService::select(const card::IChannel& channel,
                               const mw::ByteBuffer& fileIdOrPath) const {
    const auto held = card::Transaction::join(channel);
    selection_->select(held, fileIdOrPath);
}

void FileAccessService::update(const card::IChannel& channel, std::size_t offset,
                               const mw::ByteBuffer& data) const {
    if (data.empty()) {
        return;
    }
    checkRange(offset, data.size());
    const auto held = card::Transaction::join(channel);
    selection_->followReset(held);
    selection_->onCurrentFile([&] {
        binaryCommand("Update Binary", 0xD6, offset, data,
                      selection_->extendedLength(held.transport()))
            .execute(held);
    });
}

std::size_t FileAccessService::maxReadLength(const card::IChannel& channel) const {
    return selection_->extendedLength(channel.transport(0)) ? maxFramedApdu - statusWordSize
                                                            : longestAnswer(false);
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
