#ifndef PKCS11_OBJECTIDENTIFIER_HPP
#define PKCS11_OBJECTIDENTIFIER_HPP

#include "mw/ByteBuffer.hpp"
#include "pkcs11/Attributes.hpp"

namespace pkcs11 {

/// The DER OBJECT IDENTIFIER (06, length, content) of the content octets a
/// card entry holds, as CKA_OBJECT_ID shows it; a length of 128 octets and
/// more takes the long form.
Bytes objectIdentifierDer(const mw::ByteBuffer& content);

/// The content octets of the DER OBJECT IDENTIFIER `der`, as the card
/// stores them. Anything else (another tag, a length that is not minimal or
/// does not match, a truncated or non-minimal arc, an arc over 63 bits) is a
/// Failure with CKR_ATTRIBUTE_VALUE_INVALID.
mw::ByteBuffer objectIdentifierContent(const Bytes& der);

} // namespace pkcs11

#endif
