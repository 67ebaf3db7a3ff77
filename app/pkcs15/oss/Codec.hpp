#ifndef APP_PKCS15_OSS_CODEC_HPP
#define APP_PKCS15_OSS_CODEC_HPP

// DER codec of the PKCS#15 types: liberal in, strict out.
//
// decode() reads one value from the start of [data, data + size) and returns
// the number of bytes it used, so that a caller can walk a directory file
// value by value up to its 00 or FF padding. Every failure throws
// app::InvalidDataException with app::ErrorText (one of the kText* messages
// below) and app::ErrorData (the byte offset from `data` where it happened).
//
// A component after the last one a SEQUENCE knows is kept as read (see
// Asn1Types.hpp), and so is one a card put before a known one, up to
// kMaxMisplaced of them in one SEQUENCE; beyond, or where a known component
// cannot be told from them, the decode fails ("ASN.1: unexpected tag", or
// "ASN.1: unexpected tag before a known component of <type>").
//
// encode() returns strict DER; a value longer than kMaxEncodedSize throws
// app::InvalidDataException kTextTooLong with the size attached. A value whose
// kept components would no longer read back as they were throws
// kTextCannotKeep, and one that no longer has the known component a
// misplaced one stood before throws kTextCannotPlace, rather than lose or
// move them.

#include "app/pkcs15/oss/Asn1Types.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

namespace app::pkcs15::oss {

constexpr std::size_t kMaxEncodedSize = 65535;
// Most components put before a known one that one SEQUENCE may have: each
// costs a new read of the SEQUENCE.
constexpr unsigned kMaxMisplaced = 8;
// Deepest nesting of constructed values accepted, counted from the outer value.
constexpr unsigned kMaxNesting = 32;

constexpr const char* kTextTruncated = "ASN.1: truncated value";
constexpr const char* kTextBeyondData = "ASN.1: length beyond data";
constexpr const char* kTextIndefinite = "ASN.1: indefinite length not supported";
constexpr const char* kTextTooDeep = "ASN.1: nesting too deep";
constexpr const char* kTextUnexpectedTag = "ASN.1: unexpected tag";
constexpr const char* kTextMissing = "ASN.1: missing component";
constexpr const char* kTextInvalid = "ASN.1: invalid value";
constexpr const char* kTextIntegerRange = "ASN.1: integer out of range";
constexpr const char* kTextTooLong = "ASN.1: value exceeds 65535 bytes";
constexpr const char* kTextCannotKeep =
    "ASN.1: components read from the card and not understood cannot be kept with this change";
constexpr const char* kTextCannotPlace =
    "ASN.1: a component read from the card and not understood stood before one this change "
    "removes; it cannot be kept in its place";

// Every type with its own decode() and encode().
#define P15_OSS_CODEC_TYPES(X)                                                                     \
    X(PKCS15Objects)                                                                               \
    X(PathOrObjects)                                                                               \
    X(PrivateKeyType)                                                                              \
    X(PublicKeyType)                                                                               \
    X(CertificateType)                                                                             \
    X(DataType)                                                                                    \
    X(AuthenticationType)                                                                          \
    X(TokenInfo)                                                                                   \
    X(DIRRecord)                                                                                   \
    X(Path)                                                                                        \
    X(ObjectValue)                                                                                 \
    X(SecurityCondition)                                                                           \
    X(AccessControlRule)                                                                           \
    X(CommonObjectAttributes)                                                                      \
    X(CommonKeyAttributes)                                                                         \
    X(CommonPrivateKeyAttributes)                                                                  \
    X(CommonPublicKeyAttributes)                                                                   \
    X(CommonCertificateAttributes)                                                                 \
    X(CommonDataObjectAttributes)                                                                  \
    X(CommonAuthenticationObjectAttributes)                                                        \
    X(PrivateRSAKeyAttributes)                                                                     \
    X(PublicRSAKeyAttributes)                                                                      \
    X(X509CertificateAttributes)                                                                   \
    X(PinAttributes)

#define P15_OSS_CODEC(Type)                                                                        \
    std::size_t decode(const std::uint8_t* data, std::size_t size, Type& out);                     \
    Bytes encode(const Type& value);
P15_OSS_CODEC_TYPES(P15_OSS_CODEC)
#undef P15_OSS_CODEC

// OBJECT IDENTIFIER content octets to and from dotted text ("1.2.840.113549").
// Malformed input throws app::InvalidDataException kTextInvalid.
std::string oidToText(const Bytes& oid);
Bytes oidFromText(const std::string& text);

} // namespace app::pkcs15::oss

#endif
