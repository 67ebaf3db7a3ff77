#ifndef CRYPTOAPI_RSAPUBLICKEYSPEC_HPP
#define CRYPTOAPI_RSAPUBLICKEYSPEC_HPP

#include "cryptoapi/KeySpec.hpp"
#include "mw/ByteBuffer.hpp"

#include <cstddef>

namespace cryptoapi {

// An RSA public key as it comes from a card: modulus and public exponent,
// each an unsigned big-endian integer (leading zero bytes allowed). The spec
// only holds the bytes; the key factory checks them.
class RSAPublicKeySpec : public KeySpec {
public:
    RSAPublicKeySpec(const mw::ByteBuffer& modulus, const mw::ByteBuffer& publicExponent);
    RSAPublicKeySpec(const unsigned char* modulus, std::size_t modulusLength,
                     const unsigned char* publicExponent, std::size_t publicExponentLength);

    const mw::ByteBuffer& getModulus() const { return modulus_; }
    const mw::ByteBuffer& getPublicExponent() const { return publicExponent_; }

private:
    mw::ByteBuffer modulus_;
    mw::ByteBuffer publicExponent_;
};

} // namespace cryptoapi

#endif
