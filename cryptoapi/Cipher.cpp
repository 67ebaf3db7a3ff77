#include "cryptoapi/Cipher.hpp"

#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/RSAPublicKey.hpp"
#include "cryptoapi/detail/Algorithms.hpp"

#include <cryptopp/oaep.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

namespace cryptoapi {

namespace {

template <class Scheme>
std::unique_ptr<CryptoPP::TF_EncryptorBase> makeEncryptor(const CryptoPP::RSAFunction& key) {
    return std::make_unique<typename Scheme::Encryptor>(key);
}

struct CipherAlgorithm {
    const char* identifier;
    std::unique_ptr<CryptoPP::TF_EncryptorBase> (*makeEncryptor)(const CryptoPP::RSAFunction&);
};

// Crypto++'s OAEP takes the label from the call's parameters: none, empty.
const CipherAlgorithm ciphers[] = {
    {"1.2.840.113549.1.1.1", makeEncryptor<CryptoPP::RSAES<CryptoPP::PKCS1v15>>},
    {"1.2.840.113549.1.1.7/1.3.14.3.2.26",
     makeEncryptor<CryptoPP::RSAES<CryptoPP::OAEP<CryptoPP::SHA1>>>},
    {"1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.1",
     makeEncryptor<CryptoPP::RSAES<CryptoPP::OAEP<CryptoPP::SHA256>>>},
};

} // namespace

Cipher* Cipher::getInstance(const std::string& algorithm, const char* provider) {
    if (!detail::isOwnProvider(provider)) {
        return nullptr;
    }
    for (const CipherAlgorithm& cipher : ciphers) {
        if (algorithm == cipher.identifier) {
            return new Cipher(algorithm, cipher.makeEncryptor);
        }
    }
    return nullptr;
}

Cipher::Cipher(std::string algorithm, EncryptorFactory makeEncryptor)
    : algorithm_(std::move(algorithm))
    , makeEncryptor_(makeEncryptor) {}

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
    std::unique_ptr<CryptoPP::TF_EncryptorBase> encryptor = makeEncryptor_(rsaKey->function());
    // Crypto++ would still take an empty message from a key that carries
    // no byte, and write its padding past the block's start.
    if (encryptor->FixedMaxPlaintextLength() == 0) {
        MW_THROW(InvalidKeyException,
                 "a key of " + std::to_string(rsaKey->function().GetModulus().BitCount()) +
                     " bits is too short for cipher " + algorithm_);
    }
    encryptor_ = std::move(encryptor);
}

const CryptoPP::TF_EncryptorBase& Cipher::encryptor() const {
    if (!encryptor_) {
        MW_THROW(IllegalStateException, "cipher " + algorithm_ + " is not initialised");
    }
    return *encryptor_;
}

std::size_t Cipher::getMaximumInputLength() const {
    return encryptor().FixedMaxPlaintextLength();
}

unsigned char* Cipher::doFinal(std::size_t& outLength, const unsigned char* data,
                               std::size_t length) {
    const CryptoPP::TF_EncryptorBase& encryptor = this->encryptor();
    detail::requireBytes(data, length, "data");
    if (length > encryptor.FixedMaxPlaintextLength()) {
        MW_THROW(IllegalBlockSizeException,
                 "cipher " + algorithm_ + " enciphers at most " +
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
