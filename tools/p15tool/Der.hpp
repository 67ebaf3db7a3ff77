#ifndef TOOLS_P15TOOL_DER_HPP
#define TOOLS_P15TOOL_DER_HPP

#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <string>
#include <vector>

// A small DER encoder for what the tool builds itself: certificate requests
// and self-signed certificates. Each function returns one complete TLV.
namespace p15tool::der {

using Bytes = std::vector<std::uint8_t>;

Bytes tlv(std::uint8_t tag, const Bytes& content);
// The concatenation of `parts`, for SEQUENCE and SET contents.
Bytes join(std::initializer_list<Bytes> parts);

Bytes sequence(std::initializer_list<Bytes> parts);
Bytes set(std::initializer_list<Bytes> parts);
// [n] EXPLICIT around one complete TLV.
Bytes explicitTag(unsigned n, const Bytes& inner);
// A positive INTEGER from big-endian unsigned bytes (a 00 is put in front
// when the top bit is set, leading zeros go).
Bytes unsignedInteger(const Bytes& bigEndian);
Bytes smallInteger(unsigned value);
Bytes boolean(bool value);
Bytes null();
Bytes octetString(const Bytes& content);
// A BIT STRING of whole octets (no unused bits).
Bytes bitString(const Bytes& content);
// "1.2.840.113549.1.1.11"; a malformed text throws std::invalid_argument.
Bytes objectIdentifier(const std::string& dotted);
// UTCTime for the years 1950 to 2049, GeneralizedTime after, as X.509 wants.
Bytes time(std::time_t when);

// An X.501 Name from "CN=Alice,O=Example,C=DE": relative distinguished
// names in the order written, one attribute each. A comma or backslash in a
// value is escaped with a backslash. Known types are CN, C, L, ST, O, OU,
// SN (surname), GN, serialNumber, title, DC, UID and emailAddress; values are
// UTF8String except where X.509 prescribes PrintableString (C,
// serialNumber) or IA5String (DC, emailAddress). Anything else throws
// std::invalid_argument with a message for the user.
Bytes name(const std::string& text);

} // namespace p15tool::der

#endif
