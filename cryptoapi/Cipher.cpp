#include "cryptoapi/Cipher.hpp"

#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/RSAPublicKey.hpp"
#include "cryptoapi/detail/Algorithms.hpp"

#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace cryptoapi {

Cipher* Cipher::getInstance(const std::string& algorithm, const char* provider) {
    const bool known = algorithm == detail::rsaEncryptionOid && detail::isOwnProvider(provider);
    return known ? new Cipher(algorithm) : nullptr;
}

Cipher::Cipher(std::string algorithm)
    : algorithm_(std::move(algorithm)) {}

Cipher::~Cipher() = default;

void Cipher::init(OpMode mode, const PublicKey& key) {
    if (mode == DECRYPT_MODE) {
        MW_THROW(UnsupportedOperationException,
                 "RSA deciphering is not offered in software: the private key stays on the card");
    }
    if (mode != ENCRYPT_MODE) {
        MW_THROW(mw::IllegalArgumentException, "unknown cipher mode " + std::to_string(mode));
    }
    const auto* rsaKey = dynamic_cast<const RSAPublicKey*>(&key);
    if (rsaKey == nullptr) {
        MW_THROW(InvalidKeyException, "cipher " + algorithm_ + " needs an RSA public key");
    }
    key_ = std::make_unique<CryptoPP::RSAFunction>(rsaKey->function());
}

const CryptoPP::RSAFunction& Cipher::key() const {
    if (!key_) {
        MW_THROW(IllegalStateException, "cipher " + algorithm_ + " is not initialised");
    }
    return *key_;
}

std::size_t Cipher::getMaximumInputLength() const {
    return CryptoPP::RSAES_PKCS1v15_Encryptor(key()).FixedMaxPlaintextLength();
}

unsigned char* Cipher::doFinal(std::size_t& outLength, const unsigned char* data,
                               std::size_t length) {
    const CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(key());
    detail::requireBytes(data, length, "data");
    if (length > encryptor.FixedMaxPlaintextLength()) {
        MW_THROW(IllegalBlockSizeException,
                 "RSA PKCS#1 v1.5 enciphers at most " +
                     std::to_string(encryptor.FixedMaxPlaintextLength()) +
                     " bytes with this key, not " + std::to_string(length));
    }
    const std::size_t cipherLength = encryptor.FixedCiphertextLength();
    std::unique_ptr<unsigned char[]> out(new unsigned char[cipherLength]);
    CryptoPP::AutoSeededRandomPool random;
    encryptor.Encrypt(random, data, length, out.get());
    outLength = cipherLength;
    return out.release();
}

} // namespace cryptoapi
