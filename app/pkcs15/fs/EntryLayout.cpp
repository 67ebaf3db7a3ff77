#include "app/pkcs15/fs/EntryLayout.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/P15File.hpp"

#include <algorithm>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

constexpr const char* kTextCannotUpdate =
    "unable to update encoded attributes for requested file id";

// The private class and the primitive form, the tag number bits kept: one
// byte, never a padding byte, and a multi-byte tag stays one.
unsigned char holeTag(unsigned char firstTagByte) {
    return static_cast<unsigned char>((firstTagByte & 0x1F) | 0xC0);
}

std::size_t headerLength(const mw::ByteBuffer& data, std::size_t offset) {
    std::size_t valueStart = 0;
    std::size_t end = 0;
    if (EntryLayout::tlvHeader(data.data(), data.size(), offset, valueStart, end) !=
        EntryLayout::Header::complete) {
        APP_THROW(ApplicationException, kTextCannotUpdate);
    }
    return valueStart - offset;
}

} // namespace

EntryLayout::EntryLayout(mw::ByteBuffer content, std::size_t used, std::size_t fileSize,
                         bool holesAllowed)
    : content_(std::move(content))
    , used_(used)
    , fileSize_(fileSize)
    , holesAllowed_(holesAllowed) {
    if (used_ > content_.size()) {
        APP_THROW(ApplicationException, "invalid offset");
    }
}

EntryLayout::Header EntryLayout::tlvHeader(const std::uint8_t* data, std::size_t size,
                                           std::size_t offset, std::size_t& valueStart,
                                           std::size_t& end) {
    std::size_t at = offset + 1;
    if ((data[offset] & 0x1F) == 0x1F) { // high tag number
        while (at < size && (data[at] & 0x80) != 0) {
            ++at;
        }
        ++at;
    }
    if (at >= size) {
        return Header::incomplete;
    }
    const unsigned char first = data[at++];
    std::size_t length = first;
    if ((first & 0x80) != 0) {
        const std::size_t octets = first & 0x7F;
        if (octets == 0 || octets > 3) { // indefinite, or beyond any file
            return Header::malformed;
        }
        if (at + octets > size) {
            return Header::incomplete;
        }
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) {
            length = (length << 8) | data[at++];
        }
    }
    valueStart = at;
    end = at + length;
    return Header::complete;
}

std::vector<EntryLayout::Segment> EntryLayout::segments() const {
    std::vector<Segment> found;
    for (std::size_t offset = 0; offset < used_;) {
        std::size_t valueStart = 0;
        std::size_t end = 0;
        if (tlvHeader(content_.data(), used_, offset, valueStart, end) != Header::complete ||
            end > used_) {
            APP_THROW(ApplicationException, kTextCannotUpdate);
        }
        found.push_back({offset, end - offset, isHole(content_.get(offset))});
        offset = end;
    }
    return found;
}

std::size_t EntryLayout::liveEnd() const {
    std::size_t end = 0;
    for (const Segment& segment : segments()) {
        end = segment.hole ? end : segment.end();
    }
    return end;
}

std::size_t EntryLayout::liveLength() const {
    std::size_t length = 0;
    for (const Segment& segment : segments()) {
        length += segment.hole ? 0 : segment.length;
    }
    return length;
}

// The file's own padding byte, 00 where the entries run to the end.
unsigned char EntryLayout::padding() const {
    return used_ < content_.size() ? content_.get(used_) : 0x00;
}

void EntryLayout::needRoom(std::size_t end) const {
    if (end > fileSize_ || end > content_.size()) {
        APP_THROW(ApplicationException, kTextCannotUpdate);
    }
}

void EntryLayout::replace(std::size_t offset, std::size_t oldLength,
                          const mw::ByteBuffer& replacement) {
    if (liveLength() - oldLength + replacement.size() > fileSize_) {
        APP_THROW(ApplicationException, kTextCannotUpdate);
    }
    if (oldLength == 0) {
        return liveEnd() + replacement.size() <= fileSize_ ? append(replacement)
                                                           : pack(nullptr, replacement);
    }
    const std::vector<Segment> all = segments();
    const auto found = std::find_if(all.begin(), all.end(), [offset](const Segment& segment) {
        return segment.offset == offset && !segment.hole;
    });
    if (found == all.end() || found->length != oldLength) {
        APP_THROW(ApplicationException, "invalid offset");
    }
    const Segment entry = *found;
    const bool last = entry.end() == liveEnd();
    if (replacement.empty() && (last || holesAllowed_)) {
        return remove({entry.offset});
    }
    if (!replacement.empty() && rewriteInPlace(entry, replacement, last)) {
        return;
    }
    if (holesAllowed_ && !replacement.empty() && liveEnd() + replacement.size() <= fileSize_) {
        append(replacement);
        return remove({entry.offset});
    }
    pack(&entry, replacement);
}

void EntryLayout::remove(const std::vector<std::size_t>& offsets) {
    const auto removed = [&offsets](const Segment& segment) {
        return std::find(offsets.begin(), offsets.end(), segment.offset) != offsets.end();
    };
    const std::vector<Segment> all = segments();
    std::size_t keptEnd = 0;
    for (const Segment& segment : all) {
        keptEnd = segment.hole || removed(segment) ? keptEnd : segment.end();
    }
    mw::ByteBuffer after(content_);
    for (const Segment& segment : all) {
        if (!segment.hole && removed(segment) && segment.end() <= keptEnd) {
            after.data()[segment.offset] = holeTag(content_.get(segment.offset));
            const std::size_t body = segment.offset + headerLength(content_, segment.offset);
            std::fill(after.begin() + body, after.begin() + segment.end(), 0x00);
        }
    }
    std::fill(after.begin() + keptEnd, after.begin() + used_, padding());
    changeTo(std::move(after));
}

void EntryLayout::truncate(std::size_t at) {
    mw::ByteBuffer after(content_);
    std::fill(after.begin() + at, after.begin() + used_, padding());
    changeTo(std::move(after));
}

void EntryLayout::append(const mw::ByteBuffer& entry) {
    const std::size_t at = liveEnd();
    if (at < used_) {
        truncate(at);
    }
    const std::size_t end = at + entry.size();
    needRoom(end);
    mw::ByteBuffer after(content_);
    std::copy(entry.begin(), entry.end(), after.begin() + at);
    if (end < after.size() && !P15File::isPadding(after.get(end))) {
        after.data()[end] = padding();
    }
    changeTo(std::move(after));
}

// In place, where a cut can tear only this entry: its length must not move
// the entries after it (there are none, or it keeps its length), and its
// header must change in one byte at most, so that every prefix of the write
// still frames it.
bool EntryLayout::rewriteInPlace(const Segment& entry, const mw::ByteBuffer& replacement,
                                 bool last) {
    const std::size_t header = headerLength(content_, entry.offset);
    if ((!last && replacement.size() != entry.length) || headerLength(replacement, 0) != header) {
        return false;
    }
    std::size_t differing = 0;
    for (std::size_t i = 0; i < header; ++i) {
        differing += replacement.get(i) != content_.get(entry.offset + i) ? 1 : 0;
    }
    if (differing > 1) {
        return false;
    }
    const std::size_t end = entry.offset + replacement.size();
    if (last) {
        if (entry.end() < used_) {
            truncate(entry.end());
        }
        needRoom(end);
        // First the byte that will end the entries, and what a shorter entry
        // frees: all of it inside the old entry or behind the entries' end.
        mw::ByteBuffer ended(content_);
        std::fill(ended.begin() + std::min(end, entry.end()), ended.begin() + entry.end(),
                  padding());
        if (end < ended.size() && !P15File::isPadding(ended.get(end))) {
            ended.data()[end] = padding();
        }
        changeTo(std::move(ended));
    }
    mw::ByteBuffer after(content_);
    std::copy(replacement.begin(), replacement.end(), after.begin() + entry.offset);
    changeTo(std::move(after));
    return true;
}

// The entries one after another from the start, holes squeezed out.
void EntryLayout::pack(const Segment* changed, const mw::ByteBuffer& replacement) {
    mw::ByteBuffer packed;
    for (const Segment& segment : segments()) {
        if (changed && segment.offset == changed->offset) {
            packed.append(replacement);
        } else if (!segment.hole) {
            packed.append(content_.get(segment.offset, segment.length));
        }
    }
    if (!changed) {
        packed.append(replacement);
    }
    const std::size_t end = packed.size();
    needRoom(end);
    mw::ByteBuffer after(content_);
    std::copy(packed.begin(), packed.end(), after.begin());
    if (end < used_) {
        std::fill(after.begin() + end, after.begin() + used_, padding());
    }
    if (end < after.size() && !P15File::isPadding(after.get(end))) {
        after.data()[end] = padding();
    }
    changeTo(std::move(after));
}

void EntryLayout::changeTo(mw::ByteBuffer after) {
    if (after.size() != content_.size()) {
        APP_THROW(ApplicationException, kTextCannotUpdate);
    }
    const auto differs = [&](std::size_t from, std::size_t to) {
        while (from < to && content_.get(from) == after.get(from)) {
            ++from;
        }
        while (to > from && content_.get(to - 1) == after.get(to - 1)) {
            --to;
        }
        if (from < to) {
            writes_.push_back({from, after.get(from, to - from)});
        }
    };
    const std::size_t size = content_.size();
    const auto first = std::mismatch(content_.begin(), content_.end(), after.begin()).first;
    if (used_ < size && first >= content_.begin() + used_) {
        differs(used_ + 1, size);
        differs(used_, used_ + 1);
    } else {
        differs(0, size);
    }
    content_ = std::move(after);
    used_ = entriesEnd();
}

std::size_t EntryLayout::entriesEnd() const {
    std::size_t offset = 0;
    while (offset < content_.size() && !P15File::isPadding(content_.get(offset))) {
        std::size_t valueStart = 0;
        std::size_t end = 0;
        if (tlvHeader(content_.data(), content_.size(), offset, valueStart, end) !=
                Header::complete ||
            end > content_.size()) {
            APP_THROW(ApplicationException, kTextCannotUpdate);
        }
        offset = end;
    }
    return offset;
}

} // namespace fs
} // namespace pkcs15
} // namespace app
