#include "cryptoapi/KeyFactory.hpp"

#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/RSAPublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "cryptoapi/detail/Algorithms.hpp"

#include <cryptopp/rsa.h>

namespace cryptoapi {

namespace {

constexpr unsigned int minimumModulusBits = 512;
constexpr unsigned int maximumModulusBits = 8192;

// The value of unsigned big-endian bytes, refusing more significant bytes
// than the largest modulus has before any arithmetic is done on them.
CryptoPP::Integer boundedInteger(const mw::ByteBuffer& bytes, const char* what) {
    constexpr std::size_t maxBytes = maximumModulusBits / 8;
    std::size_t first = 0;
    while (first < bytes.size() && bytes.data()[first] == 0) {
        ++first;
    }
    const std::size_t significant = bytes.size() - first;
    if (significant > maxBytes) {
        MW_THROW(InvalidKeySpecException,
                 std::string("RSA ") + what + " has " + std::to_string(significant) +
                     " significant bytes, more than the " + std::to_string(maxBytes) + " of an " +
                     std::to_string(maximumModulusBits) + "-bit key");
    }
    return CryptoPP::Integer(bytes.data() + first, significant);
}

CryptoPP::Integer checkedModulus(const mw::ByteBuffer& bytes) {
    const CryptoPP::Integer modulus = boundedInteger(bytes, "modulus");
    if (modulus.BitCount() < minimumModulusBits) {
        MW_THROW(InvalidKeySpecException, "RSA modulus of " + std::to_string(modulus.BitCount()) +
                                              " bits is shorter than " +
                                              std::to_string(minimumModulusBits) + " bits");
    }
    if (modulus.IsEven()) {
        MW_THROW(InvalidKeySpecException, "RSA modulus is even");
    }
    return modulus;
}

CryptoPP::Integer checkedExponent(const mw::ByteBuffer& bytes, const CryptoPP::Integer& modulus) {
    const CryptoPP::Integer exponent = boundedInteger(bytes, "public exponent");
    if (exponent < 3) {
        MW_THROW(InvalidKeySpecException, "RSA public exponent must be 3 or more");
    }
    if (exponent.IsEven()) {
        MW_THROW(InvalidKeySpecException, "RSA public exponent is even");
    }
    if (exponent >= modulus) {
        MW_THROW(InvalidKeySpecException, "RSA public exponent is not below the modulus");
    }
    return exponent;
}

} // namespace

KeyFactory* KeyFactory::getInstance(const std::string& algorithm, const char* provider) {
    const bool rsa = algorithm == detail::rsaKeyFactoryOid || algorithm == detail::rsaEncryptionOid;
    return rsa && detail::isOwnProvider(provider) ? new KeyFactory(algorithm) : nullptr;
}

PublicKey* KeyFactory::generatePublic(const KeySpec& spec) const {
    const auto* rsaSpec = dynamic_cast<const RSAPublicKeySpec*>(&spec);
    if (rsaSpec == nullptr) {
        MW_THROW(InvalidKeySpecException, "the RSA key factory takes only an RSAPublicKeySpec");
    }
    CryptoPP::RSAFunction function;
    const CryptoPP::Integer modulus = checkedModulus(rsaSpec->getModulus());
    function.Initialize(modulus, checkedExponent(rsaSpec->getPublicExponent(), modulus));
    return new RSAPublicKey(function);
}

} // namespace cryptoapi
