#include "app/pkcs15/oss/DerReader.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <array>

namespace app::pkcs15::oss {

DerReader::DerReader(const std::uint8_t* data, std::size_t size)
    : DerReader(data, size, 0, 0) {}

DerReader::DerReader(const std::uint8_t* data, std::size_t size, std::size_t base, unsigned depth)
    : begin_(data)
    , position_(data)
    , end_(data + size)
    , base_(base)
    , depth_(depth) {}

void DerReader::fail(const char* text, std::size_t offset) const {
    APP_THROW_DATA(app::InvalidDataException, text, offset);
}

std::uint32_t DerReader::readTag(const std::uint8_t*& cursor) const {
    if (cursor == end_) {
        fail(kTextTruncated);
    }
    const std::uint8_t first = *cursor++;
    if ((first & 0x1F) != 0x1F) {
        return first;
    }
    // High tag number form: no PKCS#15 component uses it, but an unknown
    // component may and must still be skipped.
    std::uint32_t number = 0;
    for (;;) {
        if (cursor == end_) {
            fail(kTextTruncated);
        }
        if (number > 0x00FFFFFF) {
            fail(kTextInvalid);
        }
        const std::uint8_t octet = *cursor++;
        number = (number << 7) | (octet & 0x7F);
        if ((octet & 0x80) == 0) {
            return (number << 8) | 0x100 | first;
        }
    }
}

std::size_t DerReader::readLength(const std::uint8_t*& cursor) const {
    const std::size_t at = base_ + static_cast<std::size_t>(cursor - begin_);
    if (cursor == end_) {
        fail(kTextTruncated, at);
    }
    const std::uint8_t first = *cursor++;
    if (first < 0x80) {
        return first;
    }
    if (first == 0x80) {
        fail(kTextIndefinite, at);
    }
    std::size_t octets = first & 0x7F;
    std::size_t length = 0;
    while (octets-- > 0) {
        if (cursor == end_) {
            fail(kTextTruncated, at);
        }
        if (length > (SIZE_MAX >> 8)) {
            fail(kTextBeyondData, at);
        }
        length = (length << 8) | *cursor++;
    }
    return length;
}

std::uint32_t DerReader::peekTag() const {
    if (atEnd()) {
        return 0;
    }
    const std::uint8_t* cursor = position_;
    return readTag(cursor);
}

bool DerReader::nextIs(std::uint32_t expected) {
    if (expected < awaited_.size()) {
        awaited_.set(expected);
    }
    return !atEnd() && peekTag() == expected;
}

bool DerReader::nextIsLabel() {
    const std::uint32_t found = peekTag();
    bool label = false;
    for (std::uint32_t candidate : {tag::utf8String, tag::printableString, tag::t61String,
                                    tag::ia5String, tag::visibleString, tag::bmpString}) {
        awaited_.set(candidate);
        label = label || found == candidate;
    }
    return label;
}

bool DerReader::wasAwaited(std::uint32_t candidate) const {
    return candidate < awaited_.size() && awaited_.test(candidate);
}

Tlv DerReader::next() {
    awaited_.reset();
    Tlv tlv;
    tlv.offset = offset();
    tlv.begin = position_;
    const std::uint8_t* cursor = position_;
    tlv.tag = readTag(cursor);
    tlv.contentSize = readLength(cursor);
    if (tlv.contentSize > static_cast<std::size_t>(end_ - cursor)) {
        fail(kTextBeyondData, tlv.offset);
    }
    tlv.content = cursor;
    position_ = cursor + tlv.contentSize;
    tlv.totalSize = static_cast<std::size_t>(position_ - tlv.begin);
    return tlv;
}

Tlv DerReader::expect(std::uint32_t expected) {
    if (atEnd()) {
        fail(kTextMissing);
    }
    if (peekTag() != expected) {
        fail(kTextUnexpectedTag);
    }
    return next();
}

DerReader DerReader::enter(const Tlv& tlv) const {
    if (depth_ + 1 > kMaxNesting) {
        fail(kTextTooDeep, tlv.offset);
    }
    const std::size_t contentOffset = tlv.offset + (tlv.totalSize - tlv.contentSize);
    return DerReader(tlv.content, tlv.contentSize, contentOffset, depth_ + 1);
}

UnknownComponents DerReader::readUnknownTail(const char* outOfOrder) {
    UnknownComponents tail;
    if (atEnd()) {
        return tail;
    }
    const DerReader stopped = *this;
    while (!atEnd()) {
        const Tlv tlv = next();
        if (stopped.wasAwaited(tlv.tag)) {
            fail(outOfOrder, stopped.offset());
        }
        tail.push_back(tlv.bytes());
    }
    return tail;
}

void DerReader::expectEnd() {
    if (!atEnd()) {
        fail(kTextUnexpectedTag);
    }
}

Integer readInteger(DerReader& reader, std::uint32_t expected) {
    const Tlv tlv = reader.expect(expected);
    const std::uint8_t* octets = tlv.content;
    std::size_t size = tlv.contentSize;
    if (size == 0) {
        reader.fail(kTextInvalid, tlv.offset);
    }
    // Leading octets that only repeat the sign (non-minimal BER) carry nothing.
    while (size > 1 && ((octets[0] == 0x00 && (octets[1] & 0x80) == 0) ||
                        (octets[0] == 0xFF && (octets[1] & 0x80) != 0))) {
        ++octets;
        --size;
    }
    if (size > sizeof(Integer)) {
        reader.fail(kTextIntegerRange, tlv.offset);
    }
    std::uint64_t value = (octets[0] & 0x80) != 0 ? ~std::uint64_t{0} : 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = (value << 8) | octets[i];
    }
    return static_cast<Integer>(value);
}

Integer readReference(DerReader& reader, std::uint32_t expected) {
    const Integer value = readInteger(reader, expected);
    return value < 0 && value >= -0x80 ? value + 0x100 : value;
}

std::optional<unsigned char> oneByteReference(Integer reference) {
    if (reference < 0 || reference > 0xFF) {
        return std::nullopt;
    }
    return static_cast<unsigned char>(reference);
}

bool readBoolean(DerReader& reader, std::uint32_t expected) {
    const Tlv tlv = reader.expect(expected);
    if (tlv.contentSize != 1) {
        reader.fail(kTextInvalid, tlv.offset);
    }
    return tlv.content[0] != 0; // BER: any non-zero octet is TRUE
}

BitString readBitString(DerReader& reader, std::uint32_t expected) {
    const Tlv tlv = reader.expect(expected);
    if (tlv.contentSize == 0 || tlv.content[0] > 7 ||
        (tlv.contentSize == 1 && tlv.content[0] != 0)) {
        reader.fail(kTextInvalid, tlv.offset);
    }
    BitString bits;
    bits.octets.assign(tlv.content + 1, tlv.content + tlv.contentSize);
    bits.bitCount = bits.octets.size() * 8 - tlv.content[0];
    // Unused bits are zero in DER; clearing them makes equal strings compare equal.
    if (!bits.octets.empty()) {
        bits.octets.back() &= static_cast<std::uint8_t>(0xFF << tlv.content[0]);
    }
    return bits;
}

Bytes readOctetString(DerReader& reader, std::uint32_t expected) {
    return reader.expect(expected).contentBytes();
}

Bytes readOid(DerReader& reader) {
    const Tlv tlv = reader.expect(tag::oid);
    if (tlv.contentSize == 0 || (tlv.content[tlv.contentSize - 1] & 0x80) != 0) {
        reader.fail(kTextInvalid, tlv.offset);
    }
    return tlv.contentBytes();
}

std::string readText(DerReader& reader, std::uint32_t expected) {
    const Tlv tlv = reader.expect(expected);
    return std::string(tlv.content, tlv.content + tlv.contentSize);
}

std::string readTime(DerReader& reader, std::uint32_t expected) {
    return readText(reader, expected);
}

namespace {

void appendUtf8(std::string& out, std::uint32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
        return;
    }
    const int continuation = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
    constexpr std::array<std::uint8_t, 4> lead = {0x00, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(lead[continuation] | (codePoint >> (6 * continuation)));
    for (int shift = 6 * (continuation - 1); shift >= 0; shift -= 6) {
        out += static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F));
    }
}

// Size of a TLV with a one-octet tag and the minimal length for `contentSize`.
std::size_t derSize(std::size_t contentSize) {
    std::size_t lengthOctets = 1;
    if (contentSize >= 0x80) {
        for (std::size_t rest = contentSize; rest > 0; rest >>= 8) {
            ++lengthOctets;
        }
    }
    return 1 + lengthOctets + contentSize;
}

// BMPString: big-endian UCS-2. Cards that write UTF-16 surrogate pairs are
// read as the character the pair stands for; a lone surrogate is invalid.
std::string bmpToUtf8(DerReader& reader, const Tlv& tlv) {
    if (tlv.contentSize % 2 != 0) {
        reader.fail(kTextInvalid, tlv.offset);
    }
    std::string text;
    for (std::size_t i = 0; i < tlv.contentSize; i += 2) {
        std::uint32_t unit = (tlv.content[i] << 8) | tlv.content[i + 1];
        if (unit >= 0xD800 && unit < 0xE000) {
            const std::uint32_t low =
                i + 3 < tlv.contentSize ? (tlv.content[i + 2] << 8) | tlv.content[i + 3] : 0;
            if (unit >= 0xDC00 || low < 0xDC00 || low >= 0xE000) {
                reader.fail(kTextInvalid, tlv.offset);
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        }
        appendUtf8(text, unit);
    }
    return text;
}

} // namespace

std::string readLabel(DerReader& reader, Bytes& encoding) {
    if (!reader.nextIsLabel()) {
        reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
    }
    const Tlv tlv = reader.next();
    // A UTF8String in DER comes back the same from the text alone.
    if (tlv.tag == tag::utf8String && tlv.totalSize == derSize(tlv.contentSize)) {
        encoding.clear();
    } else {
        encoding = tlv.bytes();
    }
    if (tlv.tag == tag::bmpString) {
        return bmpToUtf8(reader, tlv);
    }
    return std::string(tlv.content, tlv.content + tlv.contentSize);
}

std::string labelText(const Bytes& encoding) {
    DerReader reader(encoding.data(), encoding.size());
    Bytes again;
    std::string text = readLabel(reader, again);
    reader.expectEnd();
    return text;
}

void readNull(DerReader& reader) {
    const Tlv tlv = reader.expect(tag::null);
    if (tlv.contentSize != 0) {
        reader.fail(kTextInvalid, tlv.offset);
    }
}

} // namespace app::pkcs15::oss
