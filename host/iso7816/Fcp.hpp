#ifndef HOST_ISO7816_FCP_HPP
#define HOST_ISO7816_FCP_HPP

#include "mw/ByteBuffer.hpp"

#include <boost/exception/info.hpp>
#include <cstddef>
#include <string>

namespace host {
namespace iso7816 {

// The file a card exception is about: its path from the MF in hex,
// "3F00/5015/5031".
struct tag_file_path;
using FilePath = boost::error_info<tag_file_path, std::string>;
FilePath filePath(const mw::ByteBuffer& absolutePath);

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

    // The largest transparent EF: the file size has two octets.
    static constexpr std::size_t maxEfSize = 0xFFFF;

    // Reads a SELECT answer; anything but a well-formed template 62 with a
    // file descriptor, alone in the answer, is a card::InvalidDataException
    // whose text names the field at fault.
    static Fcp parse(const mw::ByteBuffer& answer);
    // The template for CREATE FILE: size, descriptor, file identifier,
    // life cycle "operational" and the security attributes (template A1).
    mw::ByteBuffer encode(const mw::ByteBuffer& securityAttributes) const;
};

} // namespace iso7816
} // namespace host

#endif
