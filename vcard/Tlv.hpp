#pragma once

#include "vcard/Bytes.hpp"

#include <cstdint>
#include <vector>

namespace vcard {

/// One BER-TLV data object: a one- or two-byte tag (7F49) and its value.
struct Tlv {
    std::uint16_t tag;
    Bytes value;
};

/// Splits data into consecutive TLVs with definite lengths (short form, 81 xx, 82 xx xx).
/// Malformed or truncated data throws CardError(6A80).
std::vector<Tlv> parseTlvs(const Bytes& data);

/// The value of the first object with the tag, or nullptr.
const Bytes* findTlv(const std::vector<Tlv>& tlvs, std::uint16_t tag);

/// Appends tag, DER length and value to out.
void appendTlv(Bytes& out, std::uint16_t tag, const Bytes& value);

} // namespace vcard
