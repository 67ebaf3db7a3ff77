#ifndef HOST_ISO7816_FCP_HPP
#define HOST_ISO7816_FCP_HPP

#include "mw/ByteBuffer.hpp"

#include <cstddef>

namespace host {
namespace iso7816 {

// File control parameters (template 62) as the card profile writes them.
struct Fcp {
    enum Descriptor : unsigned char {
        TransparentEf = 0x01,
        RsaPrivateKeyFile = 0x11,
        RsaPublicKeyFile = 0x12,
        Df = 0x38,
    };

    unsigned char descriptor = 0;
    // Bytes of an EF; modulus bits of a key file; 0 for a DF.
    std::size_t size = 0;
    mw::ByteBuffer fileId;
    mw::ByteBuffer dfName;

    bool isDf() const { return descriptor == Df; }
    bool isTransparentEf() const { return descriptor == TransparentEf; }

    // Reads a SELECT answer; anything but a well-formed template 62 with a
    // file descriptor is a card::InvalidDataException.
    static Fcp parse(const mw::ByteBuffer& answer);
    // The template for CREATE FILE: size, descriptor, file identifier,
    // life cycle "operational" and the security attributes (template A1).
    mw::ByteBuffer encode(const mw::ByteBuffer& securityAttributes) const;
};

} // namespace iso7816
} // namespace host

#endif
