#ifndef CARD_CRYPTO_SPEC_KEYSPEC_HPP
#define CARD_CRYPTO_SPEC_KEYSPEC_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

namespace card {
namespace crypto {
namespace spec {

// Value carriers for key material handed to the key management service.
class MW_EXPORT_TYPE KeySpec {
public:
    virtual ~KeySpec() = default;
};

class MW_EXPORT_TYPE PublicKeySpec : public KeySpec {};

class MW_EXPORT_TYPE PrivateKeySpec : public KeySpec {};

class MW_EXPORT_TYPE RsaPublicKeySpec : public PublicKeySpec {
public:
    RsaPublicKeySpec(mw::ByteBuffer modulus, mw::ByteBuffer publicExponent)
        : modulus_(std::move(modulus))
        , publicExponent_(std::move(publicExponent)) {}
    // Big-endian unsigned.
    const mw::ByteBuffer& getModulus() const { return modulus_; }
    const mw::ByteBuffer& getPublicExponent() const { return publicExponent_; }

private:
    mw::ByteBuffer modulus_;
    mw::ByteBuffer publicExponent_;
};

} // namespace spec
} // namespace crypto
} // namespace card

#endif
