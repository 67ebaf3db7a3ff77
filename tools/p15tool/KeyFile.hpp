#ifndef TOOLS_P15TOOL_KEYFILE_HPP
#define TOOLS_P15TOOL_KEYFILE_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace p15tool {

// An RSA key pair as the card takes it: every value big-endian unsigned, in
// buffers that wipe themselves.
struct RsaKeyMaterial {
    unsigned bits = 0;
    mw::ByteBuffer modulus, exponent;
    // In the order IPrivateRSAKey::setCrtComponents takes them.
    mw::ByteBuffer p, q, dp, dq, pInv, qInv;
};

// The RSA private key in `path`: PKCS#8 or PKCS#1, DER or PEM. A file that
// holds anything else (an encrypted key, another algorithm, a broken
// encoding, inconsistent components) is a ToolError that says so.
RsaKeyMaterial readPrivateKeyFile(const std::string& path);
// The same for a key file's `content` already read; `path` names it in
// errors.
RsaKeyMaterial privateKeyMaterial(mw::ByteBuffer content, const std::string& path);

// The DER of the PEM block labelled `label` in `content`, or `content` as it
// is when it is not PEM. A PEM file without such a block is a ToolError that
// names `path`.
mw::ByteBuffer derFromPem(const mw::ByteBuffer& content, const std::string& label,
                          const std::string& path);

// `der` as PEM: "-----BEGIN <label>-----", base64 in lines of 64, END line.
std::string pem(const mw::ByteBuffer& der, const std::string& label);

// The public key as one line of an OpenSSH authorized_keys file.
std::string openSshLine(const mw::ByteBuffer& modulus, const mw::ByteBuffer& exponent,
                        const std::string& comment);

} // namespace p15tool

#endif
