#ifndef CRYPTOAPI_CIPHER_HPP
#define CRYPTOAPI_CIPHER_HPP

#include "cryptoapi/CipherSPI.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace CryptoPP {
class RSAFunction;
class TF_EncryptorBase;
} // namespace CryptoPP

namespace cryptoapi {

class PublicKey;

// RSA enciphering with random padding: PKCS#1 v1.5 (block type 2), named by
// rsaEncryption ("1.2.840.113549.1.1.1"), and RSAES-OAEP with an empty label
// and MGF1 of the same hash, named "1.2.840.113549.1.1.7/<hash OID>" for
// SHA-1 and SHA-256. Deciphering needs the private key, which stays on the
// card: DECRYPT_MODE is refused.
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
    // kind, and for a key too short to carry one byte under the padding);
    // DECRYPT_MODE throws UnsupportedOperationException.
    void init(OpMode mode, const PublicKey& key);

    // The most bytes one doFinal can encipher: the modulus length less 11
    // for PKCS#1 v1.5, less twice the hash length and 2 for OAEP.
    std::size_t getMaximumInputLength() const;

    // Enciphers data into one block of the modulus length: a new[] array of
    // outLength bytes owned by the caller (mw::AutoPtr with
    // mw::ArrayDeallocator). IllegalStateException before init,
    // IllegalBlockSizeException for data longer than getMaximumInputLength.
    unsigned char* doFinal(std::size_t& outLength, const unsigned char* data, std::size_t length);

private:
    using EncryptorFactory =
        std::unique_ptr<CryptoPP::TF_EncryptorBase> (*)(const CryptoPP::RSAFunction&);

    // Out of line: the encryptor's type is complete only there.
    Cipher(std::string algorithm, EncryptorFactory makeEncryptor);

    const CryptoPP::TF_EncryptorBase& encryptor() const;

    std::string algorithm_;
    EncryptorFactory makeEncryptor_;
    std::unique_ptr<CryptoPP::TF_EncryptorBase> encryptor_; // bound to the key by init
};

} // namespace cryptoapi

#endif
