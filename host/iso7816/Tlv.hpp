#ifndef HOST_ISO7816_TLV_HPP
#define HOST_ISO7816_TLV_HPP

#include "mw/ByteBuffer.hpp"

#include <cstddef>
#include <optional>

namespace host {
namespace iso7816 {

// Position of one BER-TLV data object inside a buffer.
struct Tlv {
    unsigned int tag = 0;
    std::size_t valueOffset = 0;
    std::size_t length = 0;

    std::size_t end() const { return valueOffset + length; }
};

// Walks the data objects of a byte range, one level deep. Everything the
// card sends is untrusted: a truncated tag, length or value, an indefinite
// length or one beyond 65535 bytes throws card::InvalidDataException.
class TlvReader {
public:
    TlvReader(const mw::ByteBuffer& data, std::size_t begin, std::size_t end);
    explicit TlvReader(const mw::ByteBuffer& data)
        : TlvReader(data, 0, data.size()) {}
    // The objects nested in a constructed object.
    TlvReader(const mw::ByteBuffer& data, const Tlv& parent)
        : TlvReader(data, parent.valueOffset, parent.end()) {}

    bool atEnd() const { return position_ >= end_; }
    Tlv next();
    // The first object with `tag` from the current position on.
    std::optional<Tlv> find(unsigned int tag);

private:
    unsigned char byte();

    const mw::ByteBuffer& data_;
    std::size_t position_;
    std::size_t end_;
};

// The first object of `data` (one level), which must carry `tag`.
Tlv expectTlv(const mw::ByteBuffer& data, unsigned int tag);

mw::ByteBuffer tlvValue(const mw::ByteBuffer& data, const Tlv& tlv);

// Appends tag, DER length and value.
void appendTlv(mw::ByteBuffer& out, unsigned int tag, const mw::ByteBuffer& value);
void appendTag(mw::ByteBuffer& out, unsigned int tag);
void appendLength(mw::ByteBuffer& out, std::size_t length);

} // namespace iso7816
} // namespace host

#endif
