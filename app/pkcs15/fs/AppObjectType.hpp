#ifndef APP_PKCS15_FS_APPOBJECTTYPE_HPP
#define APP_PKCS15_FS_APPOBJECTTYPE_HPP

#include <cstdint>

namespace app {
namespace pkcs15 {
namespace fs {

// Kinds of card objects that file identifiers and key references are
// allocated for. A private key of a size has the odd value, its public key
// the next even one.
enum AppObjectType : std::uint32_t {
    DataObjectFile = 0,     // value file of a data object without access rules
    ProtectedValueFile = 1, // value file of a certificate or data object with rules
    CertificateFile = 2,    // value file of a certificate without access rules
    RsaPrivateKey1024 = 3,
    RsaPublicKey1024 = 4,
    RsaPrivateKey1536 = 5,
    RsaPublicKey1536 = 6,
    RsaPrivateKey2048 = 7,
    RsaPublicKey2048 = 8,
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
