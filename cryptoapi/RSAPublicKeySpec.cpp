#include "cryptoapi/RSAPublicKeySpec.hpp"

#include "cryptoapi/detail/Algorithms.hpp"

namespace cryptoapi {

namespace {

mw::ByteBuffer copyOf(const unsigned char* bytes, std::size_t length, const char* what) {
    detail::requireBytes(bytes, length, what);
    return mw::ByteBuffer(bytes, length);
}

} // namespace

RSAPublicKeySpec::RSAPublicKeySpec(const mw::ByteBuffer& modulus,
                                   const mw::ByteBuffer& publicExponent)
    : modulus_(modulus)
    , publicExponent_(publicExponent) {}

RSAPublicKeySpec::RSAPublicKeySpec(const unsigned char* modulus, std::size_t modulusLength,
                                   const unsigned char* publicExponent,
                                   std::size_t publicExponentLength)
    : modulus_(copyOf(modulus, modulusLength, "modulus"))
    , publicExponent_(copyOf(publicExponent, publicExponentLength, "public exponent")) {}

} // namespace cryptoapi
