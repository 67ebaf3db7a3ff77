#include "app/pkcs15/oss/DerReader.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"

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

Tlv DerReader::next() {
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

void DerReader::skipRest() {
    while (!atEnd()) {
        next();
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

bool isLabelTag(std::uint32_t candidate) {
    return candidate == tag::utf8String || candidate == tag::printableString ||
           candidate == tag::t61String || candidate == tag::ia5String ||
           candidate == tag::visibleString;
}

std::string readLabel(DerReader& reader) {
    const std::uint32_t found = reader.peekTag();
    if (!isLabelTag(found)) {
        reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
    }
    return readText(reader, found);
}

void readNull(DerReader& reader) {
    const Tlv tlv = reader.expect(tag::null);
    if (tlv.contentSize != 0) {
        reader.fail(kTextInvalid, tlv.offset);
    }
}

} // namespace app::pkcs15::oss
