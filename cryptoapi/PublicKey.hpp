#ifndef CRYPTOAPI_PUBLICKEY_HPP
#define CRYPTOAPI_PUBLICKEY_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace cryptoapi {

// A public key made by a KeyFactory, ready for Signature::initVerify and
// Cipher::init.
class PublicKey {
public:
    virtual ~PublicKey() = default;
    PublicKey(const PublicKey&) = delete;
    PublicKey& operator=(const PublicKey&) = delete;

    // The OID the key factory was looked up with.
    virtual const std::string& getAlgorithm() const = 0;
    // The key as a DER SubjectPublicKeyInfo (X.509).
    virtual mw::ByteBuffer getEncoded() const = 0;

protected:
    PublicKey() = default;
};

} // namespace cryptoapi

#endif
