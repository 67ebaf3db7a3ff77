#ifndef TOOLS_P15TOOL_DIGEST_HPP
#define TOOLS_P15TOOL_DIGEST_HPP

#include "mw/ByteBuffer.hpp"

#include <cstddef>
#include <string>

namespace p15tool {

class InputFile;

/// The hash of `head` followed by the rest of `input`, hashed as it is read,
/// so that a message of any size takes 64 KiB of memory. `hash` is named as
/// --alg names it: sha1, sha224, sha256, sha384, sha512, md5 or ripemd160.
/// Input of unknown size (a pipe) longer than 4 GiB is a ToolError; a
/// terminal shows the hashing when it takes more than a second.
mw::ByteBuffer digest(const std::string& hash, const mw::ByteBuffer& head, InputFile& input);

/// The DER DigestInfo (hash algorithm and hash value) of what digest() hashes.
mw::ByteBuffer digestInfo(const std::string& hash, const mw::ByteBuffer& head, InputFile& input);

/// The dotted object identifier of the hash `hash`, and its length in bytes.
std::string hashOid(const std::string& hash);
std::size_t hashLength(const std::string& hash);

} // namespace p15tool

#endif
