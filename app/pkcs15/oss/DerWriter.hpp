#ifndef APP_PKCS15_OSS_DERWRITER_HPP
#define APP_PKCS15_OSS_DERWRITER_HPP

#include "app/pkcs15/oss/Asn1Types.hpp"
#include "app/pkcs15/oss/DerReader.hpp"

#include <cryptopp/asn.h>
#include <cryptopp/filters.h>

#include <cstdint>
#include <string>

namespace app::pkcs15::oss {

using Sink = CryptoPP::BufferedTransformation;

// Writes one constructed value; `body` writes its content into the encoder,
// which prepends the minimal definite length when it ends.
template <class Body> void writeConstructed(Sink& sink, std::uint32_t constructedTag, Body body) {
    CryptoPP::DERGeneralEncoder encoder(sink, static_cast<CryptoPP::byte>(constructedTag));
    body(encoder);
    encoder.MessageEnd();
}

void writePrimitive(Sink& sink, std::uint32_t primitiveTag, const std::uint8_t* content,
                    std::size_t size);
void writeInteger(Sink& sink, Integer value, std::uint32_t primitiveTag = tag::integer);
void writeBoolean(Sink& sink, bool value, std::uint32_t primitiveTag = tag::boolean);
// Exactly bitCount bits (not trimmed to the last set bit), unused bits zero.
void writeBitString(Sink& sink, const BitString& bits);
void writeOctetString(Sink& sink, const Bytes& octets,
                      std::uint32_t primitiveTag = tag::octetString);
void writeOid(Sink& sink, const Bytes& oid);
void writeText(Sink& sink, const std::string& text, std::uint32_t primitiveTag);
// A label: its TLV as read while the text is what it was read as, otherwise
// a UTF8String.
void writeLabel(Sink& sink, const std::string& text, const Bytes& encoding);
void writeNull(Sink& sink);
// A value kept as read: written back byte for byte.
void writeRaw(Sink& sink, const Bytes& tlv);

} // namespace app::pkcs15::oss

#endif
