#include "cryptoapi/Signature.hpp"

#include "cryptoapi/CryptoException.hpp"
#include "cryptoapi/MessageDigest.hpp"
#include "cryptoapi/RSAPublicKey.hpp"
#include "cryptoapi/detail/Algorithms.hpp"
#include "cryptoapi/detail/Pkcs1.hpp"

#include <cryptopp/cryptlib.h>
#include <cryptopp/rsa.h>

namespace cryptoapi {

Signature* Signature::getInstance(const std::string& algorithm, const char* provider) {
    const detail::SignatureAlgorithm* found = detail::findSignature(algorithm);
    if (found == nullptr || !detail::isOwnProvider(provider)) {
        return nullptr;
    }
    std::unique_ptr<MessageDigest> digest;
    std::unique_ptr<CryptoPP::HashTransformation> pssHash;
    if (found->pss) {
        pssHash = detail::createHash(found->hashOid);
    } else if (*found->hashOid != '\0') {
        digest.reset(MessageDigest::getInstance(found->hashOid));
    }
    return new Signature(algorithm, std::move(digest), std::move(pssHash));
}

Signature::Signature(std::string algorithm, std::unique_ptr<MessageDigest> digest,
                     std::unique_ptr<CryptoPP::HashTransformation> pssHash)
    : algorithm_(std::move(algorithm))
    , digest_(std::move(digest))
    , pssHash_(std::move(pssHash)) {
    if (digest_) {
        digestInfoPrefix_ =
            detail::digestInfoPrefix(digest_->getAlgorithm(), digest_->getDigestLength());
    }
}

Signature::~Signature() = default;

void Signature::initVerify(const PublicKey& key) {
    const auto* rsaKey = dynamic_cast<const RSAPublicKey*>(&key);
    if (rsaKey == nullptr) {
        MW_THROW(InvalidKeyException, "signature " + algorithm_ + " needs an RSA public key");
    }
    key_ = std::make_unique<CryptoPP::RSAFunction>(rsaKey->function());
    takePayload();
}

void Signature::requireKey() const {
    if (!key_) {
        MW_THROW(IllegalStateException,
                 "signature " + algorithm_ + " is not initialised for verification");
    }
}

std::size_t Signature::dataLimit() const {
    return pssHash_ ? pssHash_->DigestSize() : key_->GetModulus().ByteCount();
}

void Signature::update(const unsigned char* data, std::size_t length) {
    requireKey();
    detail::requireBytes(data, length, "data");
    if (digest_) {
        digest_->update(data, length);
    } else if (!dataTooLong_ && length <= dataLimit() - data_.size()) {
        data_.insert(data_.end(), data, data + length);
    } else {
        dataTooLong_ = true;
        data_.clear();
    }
}

std::vector<unsigned char> Signature::takePayload() {
    std::vector<unsigned char> payload;
    if (digest_) {
        std::size_t length = 0;
        const std::unique_ptr<unsigned char[]> hash(digest_->digest(length));
        payload = digestInfoPrefix_;
        payload.insert(payload.end(), hash.get(), hash.get() + length);
    } else {
        payload.swap(data_);
    }
    dataTooLong_ = false;
    return payload;
}

bool Signature::verify(const unsigned char* signature, std::size_t length) {
    requireKey();
    detail::requireBytes(signature, length, "signature");
    const bool tooLong = dataTooLong_;
    const std::vector<unsigned char> payload = takePayload();
    if (tooLong) {
        return false;
    }
    return pssHash_
               ? detail::verifyPss(*key_, *pssHash_, signature, length, payload.data(),
                                   payload.size())
               : detail::verifyPkcs1v15(*key_, signature, length, payload.data(), payload.size());
}

} // namespace cryptoapi
