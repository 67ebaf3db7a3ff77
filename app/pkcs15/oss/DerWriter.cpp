#include "app/pkcs15/oss/DerWriter.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <algorithm>

namespace app::pkcs15::oss {

void writePrimitive(Sink& sink, std::uint32_t primitiveTag, const std::uint8_t* content,
                    std::size_t size) {
    sink.Put(static_cast<CryptoPP::byte>(primitiveTag));
    CryptoPP::DERLengthEncode(sink, size);
    sink.Put(content, size);
}

void writeInteger(Sink& sink, Integer value, std::uint32_t primitiveTag) {
    std::uint8_t octets[sizeof(Integer)];
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(Integer); ++i) {
        octets[i] = static_cast<std::uint8_t>(bits >> (8 * (sizeof(Integer) - 1 - i)));
    }
    // Minimal two's complement: drop leading octets that only repeat the sign.
    std::size_t skip = 0;
    while (skip + 1 < sizeof(Integer) &&
           ((octets[skip] == 0x00 && (octets[skip + 1] & 0x80) == 0) ||
            (octets[skip] == 0xFF && (octets[skip + 1] & 0x80) != 0))) {
        ++skip;
    }
    writePrimitive(sink, primitiveTag, octets + skip, sizeof(Integer) - skip);
}

void writeBoolean(Sink& sink, bool value, std::uint32_t primitiveTag) {
    const std::uint8_t octet = value ? 0xFF : 0x00;
    writePrimitive(sink, primitiveTag, &octet, 1);
}

void writeBitString(Sink& sink, const BitString& bits) {
    const std::size_t size = (bits.bitCount + 7) / 8;
    const auto unused = static_cast<unsigned int>(size * 8 - bits.bitCount);
    Bytes octets(size, 0);
    std::copy_n(bits.octets.begin(), std::min(size, bits.octets.size()), octets.begin());
    if (size > 0) {
        octets.back() &= static_cast<std::uint8_t>(0xFF << unused);
    }
    CryptoPP::DEREncodeBitString(sink, octets.data(), octets.size(), unused);
}

void writeOctetString(Sink& sink, const Bytes& octets, std::uint32_t primitiveTag) {
    writePrimitive(sink, primitiveTag, octets.data(), octets.size());
}

void writeOid(Sink& sink, const Bytes& oid) {
    if (oid.empty() || (oid.back() & 0x80) != 0) {
        APP_THROW(app::InvalidDataException, kTextInvalid);
    }
    writePrimitive(sink, tag::oid, oid.data(), oid.size());
}

void writeText(Sink& sink, const std::string& text, std::uint32_t primitiveTag) {
    CryptoPP::DEREncodeTextString(sink, text, static_cast<CryptoPP::byte>(primitiveTag));
}

void writeLabel(Sink& sink, const std::string& text, const Bytes& encoding) {
    if (!encoding.empty() && labelText(encoding) == text) {
        writeRaw(sink, encoding);
    } else {
        writeText(sink, text, tag::utf8String);
    }
}

void writeNull(Sink& sink) {
    CryptoPP::DEREncodeNull(sink);
}

void writeRaw(Sink& sink, const Bytes& tlv) {
    // An empty value would silently drop a component the type requires.
    if (tlv.empty()) {
        APP_THROW(app::InvalidDataException, kTextInvalid);
    }
    sink.Put(tlv.data(), tlv.size());
}

} // namespace app::pkcs15::oss
