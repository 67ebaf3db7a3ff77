#ifndef CRYPTOAPI_RSAPUBLICKEY_HPP
#define CRYPTOAPI_RSAPUBLICKEY_HPP

#include "cryptoapi/PublicKey.hpp"

#include <memory>

namespace CryptoPP {
class RSAFunction;
}

namespace cryptoapi {

// An RSA public key whose modulus and exponent passed the key factory's
// checks: odd modulus of 512 to 8192 bits, odd exponent from 3 up to below
// the modulus. Only the factory makes them.
class RSAPublicKey : public PublicKey {
public:
    ~RSAPublicKey() override;

    const std::string& getAlgorithm() const override;
    mw::ByteBuffer getEncoded() const override;

    // Unsigned big-endian, without leading zero bytes.
    mw::ByteBuffer getModulus() const;
    mw::ByteBuffer getPublicExponent() const;

    // The key in the form the Crypto++ schemes take it.
    const CryptoPP::RSAFunction& function() const { return *function_; }

private:
    friend class KeyFactory;
    explicit RSAPublicKey(const CryptoPP::RSAFunction& function);

    std::unique_ptr<CryptoPP::RSAFunction> function_;
};

} // namespace cryptoapi

#endif
