#pragma once

#include "vcard/Bytes.hpp"

#include <cryptopp/rsa.h>

#include <cstddef>

namespace CryptoPP {
class RandomNumberGenerator;
}

namespace vcard {

/// The CRT components of an imported private key, big-endian unsigned integers.
struct RsaCrtComponents {
    Bytes e, p, q, qInv, dp, dq;
    ~RsaCrtComponents();
};

/// An RSA key pair held in a private key file; the public part alone in a public key file.
class RsaKey {
public:
    /// A new key with public exponent 65537.
    static RsaKey generate(CryptoPP::RandomNumberGenerator& rng, unsigned bits);
    /// Checks that the components form a key of the given size that the card image will take
    /// again (isValid); throws CardError(6A80) if not.
    static RsaKey fromCrt(CryptoPP::RandomNumberGenerator& rng, const RsaCrtComponents& crt,
                          unsigned bits);
    /// The consistency checks the card applies to every key it stores or loads.
    static bool isValid(CryptoPP::RandomNumberGenerator& rng,
                        const CryptoPP::InvertibleRSAFunction& function, bool hasPrivate);

    /// The public part of this key: modulus and exponent only.
    RsaKey publicPart() const;

    bool hasPrivatePart() const { return hasPrivate_; }
    unsigned bits() const;
    std::size_t modulusBytes() const { return (bits() + 7) / 8; }
    Bytes modulus() const;
    Bytes exponent() const;

    /// The public key template 7F49 { 81 modulus, 82 exponent }.
    Bytes publicKeyTemplate() const;

    /// The private operation (CRT, blinded) on a block of modulusBytes(), answering as many
    /// bytes. A block of another size or not below the modulus throws CardError(6A80). Padding
    /// and its removal: RsaPadding.hpp.
    Bytes privateOperation(CryptoPP::RandomNumberGenerator& rng, const Bytes& block) const;

    /// Named big-endian components for the card image: n, e and, with a private part, d, p, q,
    /// dp, dq, qinv.
    const CryptoPP::InvertibleRSAFunction& function() const { return function_; }
    static RsaKey fromFunction(const CryptoPP::InvertibleRSAFunction& function, bool hasPrivate);

private:
    RsaKey() = default;

    CryptoPP::InvertibleRSAFunction function_;
    bool hasPrivate_ = false;
};

} // namespace vcard
