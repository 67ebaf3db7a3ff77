#ifndef APP_PKCS15_OSS_DERREADER_HPP
#define APP_PKCS15_OSS_DERREADER_HPP

#include "app/pkcs15/oss/Asn1Types.hpp"

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace app::pkcs15::oss {

// Identifier octets of the tags the codec meets. A tag in the high-number form
// is folded into a value above 0xFF so that it never equals one of these.
namespace tag {
constexpr std::uint32_t boolean = 0x01, integer = 0x02, bitString = 0x03, octetString = 0x04,
                        null = 0x05, oid = 0x06, enumerated = 0x0A, utf8String = 0x0C,
                        printableString = 0x13, t61String = 0x14, ia5String = 0x16,
                        generalizedTime = 0x18, visibleString = 0x1A, bmpString = 0x1E,
                        sequence = 0x30, set = 0x31;
constexpr std::uint32_t context(unsigned number) {
    return 0x80 | number;
}
constexpr std::uint32_t contextConstructed(unsigned number) {
    return 0xA0 | number;
}
constexpr std::uint32_t application(unsigned number) {
    return 0x40 | number;
}
constexpr std::uint32_t applicationConstructed(unsigned number) {
    return 0x60 | number;
}
} // namespace tag

// One TLV as found in the input.
struct Tlv {
    std::uint32_t tag = 0;
    const std::uint8_t* begin = nullptr; // first identifier octet
    const std::uint8_t* content = nullptr;
    std::size_t contentSize = 0;
    std::size_t totalSize = 0;
    std::size_t offset = 0; // of the first identifier octet, from the start of the input

    Bytes bytes() const { return Bytes(begin, begin + totalSize); }
    Bytes contentBytes() const { return Bytes(content, content + contentSize); }
};

// Reads TLVs from a byte range. Crypto++'s BER decoders are not used for the
// structure: they accept indefinite lengths, report no position and throw
// BERDecodeErr; this reader accepts any definite length (long form,
// non-minimal) and reports every failure with its offset.
class DerReader {
public:
    DerReader(const std::uint8_t* data, std::size_t size);

    bool atEnd() const { return position_ == end_; }
    // Offset of the read position from the start of the whole input.
    std::size_t offset() const { return base_ + static_cast<std::size_t>(position_ - begin_); }
    // The next tag; 0 at the end, which no component of the codec uses.
    std::uint32_t peekTag() const;
    // Whether the next tag is `expected`. The tags asked for since the last
    // TLV was taken are remembered: they are the optional components that
    // could still have come (see wasAwaited).
    bool nextIs(std::uint32_t expected);
    // Whether the next tag is one of the string types a label may have.
    bool nextIsLabel();

    Tlv next();
    Tlv expect(std::uint32_t expected);
    // A reader over the content of a constructed TLV, one nesting level deeper.
    DerReader enter(const Tlv& tlv) const;
    // A reader over `data` (components of this reader's data, some set
    // aside) at this reader's nesting level; its offsets count from `data`.
    DerReader over(const Bytes& data) const {
        return DerReader(data.data(), data.size(), 0, depth_);
    }
    // Takes what is left, unread.
    void skipToEnd() {
        awaited_.reset();
        position_ = end_;
    }
    // What is left: the components after the last one the type knows, as read.
    // A component the reader still awaited among them means an unknown one
    // stands before a known one; that fails with `outOfOrder` at the first.
    UnknownComponents readUnknownTail(const char* outOfOrder);
    // Fails unless the reader is at its end (the content of a tag on a CHOICE).
    void expectEnd();

    [[noreturn]] void fail(const char* text, std::size_t offset) const;
    [[noreturn]] void fail(const char* text) const { fail(text, offset()); }

private:
    DerReader(const std::uint8_t* data, std::size_t size, std::size_t base, unsigned depth);
    std::uint32_t readTag(const std::uint8_t*& cursor) const;
    std::size_t readLength(const std::uint8_t*& cursor) const;
    // Whether `candidate` is a tag asked for by nextIs since the last TLV taken.
    bool wasAwaited(std::uint32_t candidate) const;

    const std::uint8_t* begin_;
    const std::uint8_t* position_;
    const std::uint8_t* end_;
    std::size_t base_;
    unsigned depth_;
    std::bitset<256> awaited_;
};

// Primitive values. Each reads one TLV with the given tag (the universal tag
// by default, a context tag for implicitly tagged components).
Integer readInteger(DerReader& reader, std::uint32_t expected = tag::integer);
// A Reference (a key, PIN or algorithm reference, 0..255). Cards write the
// references above 127 in one octet (02 01 81), which as a signed INTEGER
// would be negative: a one-octet value is taken as the unsigned octet it is.
Integer readReference(DerReader& reader, std::uint32_t expected = tag::integer);
// A reference as the card's commands carry it, in one byte; none outside 0..255.
std::optional<unsigned char> oneByteReference(Integer reference);
bool readBoolean(DerReader& reader, std::uint32_t expected = tag::boolean);
BitString readBitString(DerReader& reader, std::uint32_t expected = tag::bitString);
Bytes readOctetString(DerReader& reader, std::uint32_t expected = tag::octetString);
Bytes readOid(DerReader& reader);
std::string readTime(DerReader& reader, std::uint32_t expected = tag::generalizedTime);
// UTF8String as declared, or one of the string types cards write instead
// (8-bit strings as their octets, BMPString converted to UTF-8); `encoding`
// receives the TLV as read, or nothing for a DER UTF8String.
std::string readLabel(DerReader& reader, Bytes& encoding);
// The text of a label TLV kept as read.
std::string labelText(const Bytes& encoding);
std::string readText(DerReader& reader, std::uint32_t expected);
void readNull(DerReader& reader);

} // namespace app::pkcs15::oss

#endif
