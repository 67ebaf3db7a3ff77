#ifndef CRYPTOAPI_CIPHER_HPP
#define CRYPTOAPI_CIPHER_HPP

#include "cryptoapi/CipherSPI.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace CryptoPP {
class RSAFunction;
}

namespace cryptoapi {

class PublicKey;

// RSA PKCS#1 v1.5 enciphering (block type 2, random padding), named by
// rsaEncryption ("1.2.840.113549.1.1.1"). Deciphering needs the private key,
// which stays on the card: DECRYPT_MODE is refused.
class Cipher : public CipherSPI {
public:
    // A new cipher (owned by the caller, suited to mw::AutoPtr), or null when
    // the algorithm or the provider is unknown.
    static Cipher* getInstance(const std::string& algorithm, const char* provider = nullptr);

    ~Cipher();
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;

    const std::string& getAlgorithm() const { return algorithm_; }

    // ENCRYPT_MODE with an RSA public key (InvalidKeyException for another
    // kind); DECRYPT_MODE throws UnsupportedOperationException.
    void init(OpMode mode, const PublicKey& key);

    // The most bytes one doFinal can encipher: the modulus length less 11.
    std::size_t getMaximumInputLength() const;

    // Enciphers data into one block of the modulus length: a new[] array of
    // outLength bytes owned by the caller (mw::AutoPtr with
    // mw::ArrayDeallocator). IllegalStateException before init,
    // IllegalBlockSizeException for data longer than getMaximumInputLength.
    unsigned char* doFinal(std::size_t& outLength, const unsigned char* data, std::size_t length);

private:
    // Out of line: the key's type is complete only there.
    explicit Cipher(std::string algorithm);

    const CryptoPP::RSAFunction& key() const;

    std::string algorithm_;
    std::unique_ptr<CryptoPP::RSAFunction> key_;
};

} // namespace cryptoapi

#endif
