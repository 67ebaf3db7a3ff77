#include "app/pkcs15/fs/P15File.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "card/service/IFileAccessService.hpp"
#include "mw/Hex.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

// What one read asks for at least: the most a short READ BINARY returns, so
// that a card without extended length answers each read in whole commands.
// A card that answers more at once is asked for twice as much each time, so
// that a long file takes few commands and little padding.
constexpr std::size_t readChunk = 256;

// Where the DER value starting at `offset` ends, from its tag and length
// alone; 0 when the bytes do not hold its header yet, and the data's end
// when the header is malformed (the decoder reports it).
std::size_t entryEnd(const mw::ByteBuffer& data, std::size_t offset) {
    std::size_t valueStart = 0;
    std::size_t end = 0;
    switch (EntryLayout::tlvHeader(data.data(), data.size(), offset, valueStart, end)) {
    case EntryLayout::Header::complete:
        return end;
    case EntryLayout::Header::incomplete:
        return 0;
    default:
        return data.size();
    }
}

// How many more bytes must be read before the entries' end is known: 0 once
// a padding byte follows the last complete entry.
std::size_t bytesWanted(const mw::ByteBuffer& data) {
    std::size_t offset = 0;
    while (offset < data.size() && !P15File::isPadding(data.get(offset))) {
        const std::size_t end = entryEnd(data, offset);
        if (end == 0) {
            return 1;
        }
        offset = end;
    }
    // One byte past the last entry tells whether another one follows.
    return offset < data.size() ? 0 : offset - data.size() + 1;
}

// Where the entry at `offset` ends, from its tag and length; 0 when they are
// broken (a length beyond the data read, an indefinite length).
std::size_t framedEnd(const mw::ByteBuffer& content, std::size_t offset) {
    oss::DerReader reader(content.data() + offset, content.size() - offset);
    try {
        return offset + reader.next().totalSize;
    } catch (const InvalidDataException&) {
        return 0;
    }
}

// "ASN.1: unexpected tag at byte 131", the byte counted from the file's start.
std::string decodeFailure(const InvalidDataException& error, std::size_t entryOffset) {
    const char* const* text = boost::get_error_info<ErrorText>(error);
    const unsigned int* at = boost::get_error_info<ErrorData>(error);
    std::string reason = text ? *text : error.what();
    if (at) {
        reason += " at byte " + std::to_string(entryOffset + *at);
    }
    return reason;
}

} // namespace

std::string pathText(const mw::ByteBuffer& path) {
    const std::string hex = mw::toHex(path);
    std::string text;
    for (std::size_t at = 0; at < hex.size(); at += 4) {
        text += (at > 0 ? "/" : "") + hex.substr(at, 4);
    }
    return text;
}

P15File::P15File(const boost::weak_ptr<ODF>& odf, FileId kind)
    : odf_(odf)
    , kind_(kind) {}

P15File::~P15File() = default;

boost::shared_ptr<ODF> P15File::odf() const {
    boost::shared_ptr<ODF> owner = odf_.lock();
    if (!owner) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    return owner;
}

boost::shared_ptr<const P15Application> P15File::application() const {
    return odf()->application();
}

// EF(ODF) does not list EF(TokenInfo): it is 5032 in every application.
mw::ByteBuffer P15File::getFileId(const card::IChannel& channel,
                                  const card::service::IFileAccessService& fileAccess) const {
    if (kind_ == TokenInfo) {
        return mw::ByteBuffer{0x50, 0x32};
    }
    return odf()->getFileId(channel, fileAccess, kind_);
}

mw::ByteBuffer P15File::updateEncodedAttributes(const mw::ByteBuffer& oldEncoding,
                                                const mw::ByteBuffer& newEncoding) const {
    return odf()->updateEncodedAttributes(this, oldEncoding, newEncoding);
}

void P15File::clearContent() const {
    odf()->clearContent(this);
}

void P15File::selectOnCard(const card::IChannel& channel) const {
    const boost::shared_ptr<const P15Application> app = application();
    const card::service::IFileAccessService& fileAccess = *app->getFileAccessService();
    fileAccess.select(channel, getFileId(channel, fileAccess));
    fileSize_ = fileAccess.size(channel);
}

void P15File::appendFromCard(const card::IChannel& channel, std::size_t length) const {
    const boost::shared_ptr<const P15Application> app = application();
    const mw::ByteBuffer read = app->getFileAccessService()->read(channel, content_.size(), length);
    if (read.size() != length) {
        APP_THROW_DATA(InvalidDataException, "file read returned another length than asked for",
                       static_cast<unsigned int>(read.size()));
    }
    content_.append(read);
}

// Reads the file only as far as its entries go: a directory file is mostly
// padding. Each read asks for whole chunks, and for all of an entry whose
// header says it runs on.
void P15File::ensureLoaded(const card::IChannel& channel) const {
    if (!mustRead_) {
        return;
    }
    dropContent();
    const boost::shared_ptr<const P15Application> app = application();
    path_ = getFileId(channel, *app->getFileAccessService());
    if (!path_.empty()) {
        selectOnCard(channel);
        const std::size_t mostPerRead =
            std::max(readChunk, app->getFileAccessService()->maxReadLength(channel));
        std::size_t next = readChunk;
        for (std::size_t wanted = 1; wanted != 0 && content_.size() < fileSize_;
             wanted = bytesWanted(content_)) {
            const std::size_t chunks = (wanted + readChunk - 1) / readChunk;
            const std::size_t length = std::max(chunks * readChunk, next);
            appendFromCard(channel, std::min(length, fileSize_ - content_.size()));
            next = std::min(2 * next, mostPerRead);
        }
    }
    try {
        split();
    } catch (InvalidDataException& error) {
        error << ErrorDetail(where());
        throw;
    }
    mustRead_ = false;
}

std::string P15File::where() const {
    return std::string(name()) + " " + pathText(path_);
}

void P15File::readUpTo(const card::IChannel& channel, std::size_t end) const {
    ensureLoaded(channel);
    end = std::min(end, fileSize_);
    if (content_.size() >= end) {
        return;
    }
    selectOnCard(channel);
    appendFromCard(channel, end - content_.size());
}

const mw::ByteBuffer& P15File::content(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return content_;
}

std::size_t P15File::fileSize(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return fileSize_;
}

const std::vector<P15File::Entry>& P15File::entries(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return entries_;
}

std::size_t P15File::entriesLength(const card::IChannel& channel) const {
    std::size_t length = 0;
    for (const Entry& entry : entries(channel)) {
        length += entry.encoding.size();
    }
    return length;
}

std::size_t P15File::contentLength(const card::IChannel& channel) const {
    ensureLoaded(channel);
    if (structureBroken_) {
        BOOST_THROW_EXCEPTION(InvalidDataException()
                              << ErrorText("directory file structure broken; the file is not "
                                           "changed")
                              << ErrorData(static_cast<unsigned int>(brokenAt_))
                              << ErrorDetail(where()));
    }
    return contentLength_;
}

std::vector<P15File::EntryNote> P15File::notes(const card::IChannel& channel) const {
    ensureLoaded(channel);
    std::vector<EntryNote> sorted = notes_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const EntryNote& a, const EntryNote& b) { return a.offset < b.offset; });
    return sorted;
}

void P15File::addNote(std::size_t offset, std::string reason) const {
    notes_.push_back({offset, std::move(reason)});
}

bool P15File::hasNote(std::size_t offset) const {
    return std::any_of(notes_.begin(), notes_.end(),
                       [offset](const EntryNote& note) { return note.offset == offset; });
}

void P15File::replaceContent(mw::ByteBuffer content) const {
    content_ = std::move(content);
    split();
    mustRead_ = false;
}

void P15File::dropContent() const {
    mustRead_ = true;
    content_.clear();
    entries_.clear();
    contentLength_ = 0;
    fileSize_ = 0;
    notes_.clear();
    structureBroken_ = false;
    forgetDecoded();
}

// An entry that does not decode is kept and left out of the lists with a
// note; a broken tag or length leaves no way to find the entries after it,
// so the whole file is left out and not written.
void P15File::split() const {
    entries_.clear();
    notes_.clear();
    structureBroken_ = false;
    forgetDecoded();
    std::size_t offset = 0;
    while (offset < content_.size() && !isPadding(content_.data()[offset])) {
        const std::size_t end = framedEnd(content_, offset);
        if (end == 0 && !keepsUndecoded()) {
            decodeEntry(content_.data() + offset, content_.size() - offset); // throws the reason
        }
        if (end == 0) {
            entries_.clear();
            notes_.clear();
            forgetDecoded();
            structureBroken_ = true;
            brokenAt_ = offset;
            addNote(offset, "the file's structure is broken here (a tag or length); none of its "
                            "entries is listed");
            break;
        }
        if (!EntryLayout::isHole(content_.data()[offset])) { // holes list nothing
            decodeOrKeep(offset, end);
        }
        offset = end;
    }
    contentLength_ = offset;
}

void P15File::decodeOrKeep(std::size_t offset, std::size_t end) const {
    const std::uint8_t* entry = content_.data() + offset;
    try {
        decodeEntry(entry, end - offset);
    } catch (const InvalidDataException& error) {
        if (!keepsUndecoded()) {
            throw;
        }
        keepUndecoded(entry, end - offset);
        addNote(offset, "cannot be decoded: " + decodeFailure(error, offset));
    }
    entries_.push_back({offset, content_.get(offset, end - offset)});
}

} // namespace fs
} // namespace pkcs15
} // namespace app
