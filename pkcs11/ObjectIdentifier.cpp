#include "pkcs11/ObjectIdentifier.hpp"

#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {

constexpr unsigned char oidTag = 0x06;
constexpr unsigned char longForm = 0x80;
// Nine base-128 octets hold 63 bits: every arc a dotted text can show.
constexpr std::size_t maxArcOctets = 9;
// Four length octets are more than any attribute can be.
constexpr std::size_t maxLengthOctets = 4;

// Each arc base 128, most significant group first, without a leading 80
// group; the last octet ends an arc.
bool wellFormedArcs(const unsigned char* content, std::size_t size) {
    std::size_t arcOctets = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if ((arcOctets == 0 && content[i] == 0x80) || ++arcOctets > maxArcOctets) {
            return false;
        }
        if ((content[i] & 0x80) == 0) {
            arcOctets = 0;
        }
    }
    return size > 0 && arcOctets == 0;
}

[[noreturn]] void malformed() {
    throw Failure(CKR_ATTRIBUTE_VALUE_INVALID,
                  "CKA_OBJECT_ID is not a DER OBJECT IDENTIFIER (06, length, arcs)");
}

} // namespace

Bytes objectIdentifierDer(const mw::ByteBuffer& content) {
    Bytes length;
    for (std::size_t rest = content.size(); rest != 0; rest >>= 8) {
        length.insert(length.begin(), static_cast<unsigned char>(rest & 0xFF));
    }
    Bytes der{oidTag};
    if (content.size() < longForm) {
        der.push_back(static_cast<unsigned char>(content.size()));
    } else {
        der.push_back(static_cast<unsigned char>(longForm | length.size()));
        der.insert(der.end(), length.begin(), length.end());
    }
    der.insert(der.end(), content.begin(), content.end());
    return der;
}

mw::ByteBuffer objectIdentifierContent(const Bytes& der) {
    if (der.size() < 2 || der[0] != oidTag) {
        malformed();
    }
    std::size_t length = der[1], start = 2;
    if (der[1] & longForm) {
        const std::size_t count = der[1] & ~longForm;
        if (count == 0 || count > maxLengthOctets || der.size() < 2 + count || der[2] == 0) {
            malformed();
        }
        length = 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = length << 8 | der[2 + i];
        }
        start = 2 + count;
        if (length < longForm) {
            malformed();
        }
    }
    if (der.size() - start != length || !wellFormedArcs(der.data() + start, length)) {
        malformed();
    }
    return mw::ByteBuffer(der.data() + start, length);
}

} // namespace pkcs11
