#include "cryptoapi/MessageDigest.hpp"

#include "cryptoapi/detail/Algorithms.hpp"

#include <cryptopp/cryptlib.h>

namespace cryptoapi {

MessageDigest* MessageDigest::getInstance(const std::string& algorithm, const char* provider) {
    if (!detail::isOwnProvider(provider)) {
        return nullptr;
    }
    std::unique_ptr<CryptoPP::HashTransformation> hash = detail::createHash(algorithm);
    return hash ? new MessageDigest(algorithm, std::move(hash)) : nullptr;
}

MessageDigest::MessageDigest(std::string algorithm,
                             std::unique_ptr<CryptoPP::HashTransformation> hash)
    : algorithm_(std::move(algorithm))
    , hash_(std::move(hash)) {}

MessageDigest::~MessageDigest() = default;

std::size_t MessageDigest::getDigestLength() const {
    return hash_->DigestSize();
}

void MessageDigest::update(const unsigned char* data, std::size_t length) {
    detail::requireBytes(data, length, "data");
    hash_->Update(data, length);
}

unsigned char* MessageDigest::digest(std::size_t& outLength) {
    const std::size_t length = getDigestLength();
    auto* out = new unsigned char[length];
    hash_->Final(out);
    outLength = length;
    return out;
}

unsigned char* MessageDigest::digest(std::size_t& outLength, const unsigned char* data,
                                     std::size_t length) {
    update(data, length);
    return digest(outLength);
}

void MessageDigest::reset() {
    hash_->Restart();
}

} // namespace cryptoapi
