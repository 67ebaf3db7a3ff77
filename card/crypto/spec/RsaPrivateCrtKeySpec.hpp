#ifndef CARD_CRYPTO_SPEC_RSAPRIVATECRTKEYSPEC_HPP
#define CARD_CRYPTO_SPEC_RSAPRIVATECRTKEYSPEC_HPP

#include "card/crypto/spec/KeySpec.hpp"
#include "mw/Visibility.hpp"

namespace card {
namespace crypto {
namespace spec {

// An RSA private key in Chinese-remainder form, every component big-endian
// unsigned. Building it checks that each component fits a key of
// `modulusBits` (1024, 1536 or 2048): the primes and the CRT values are at
// most half the modulus wide. dp and dq, the two exponents, share one check.
// Failures are app::InvalidDataException "invalid crt component size: <name>".
class MW_EXPORT_TYPE RsaPrivateCrtKeySpec : public PrivateKeySpec {
public:
    RsaPrivateCrtKeySpec(unsigned short modulusBits, mw::ByteBuffer publicExponent,
                         mw::ByteBuffer p, mw::ByteBuffer q, mw::ByteBuffer dp, mw::ByteBuffer dq,
                         mw::ByteBuffer pInv, mw::ByteBuffer qInv);

    unsigned short getModulusBits() const { return modulusBits_; }
    const mw::ByteBuffer& getPublicExponent() const { return publicExponent_; }
    const mw::ByteBuffer& getP() const { return p_; }
    const mw::ByteBuffer& getQ() const { return q_; }
    // d mod (p - 1), d mod (q - 1)
    const mw::ByteBuffer& getDp() const { return dp_; }
    const mw::ByteBuffer& getDq() const { return dq_; }
    // p^-1 mod q, q^-1 mod p
    const mw::ByteBuffer& getPInv() const { return pInv_; }
    const mw::ByteBuffer& getQInv() const { return qInv_; }

private:
    unsigned short modulusBits_;
    mw::ByteBuffer publicExponent_;
    mw::ByteBuffer p_;
    mw::ByteBuffer q_;
    mw::ByteBuffer dp_;
    mw::ByteBuffer dq_;
    mw::ByteBuffer pInv_;
    mw::ByteBuffer qInv_;
};

} // namespace spec
} // namespace crypto
} // namespace card

#endif
