#ifndef CRYPTOAPI_MESSAGEDIGEST_HPP
#define CRYPTOAPI_MESSAGEDIGEST_HPP

#include <cstddef>
#include <memory>
#include <string>

namespace CryptoPP {
class HashTransformation;
}

namespace cryptoapi {

// A hash function named by the dotted OID of its algorithm: MD2, MD5,
// RIPEMD-128, RIPEMD-160, SHA-1, SHA-224, SHA-256, SHA-384 and SHA-512.
class MessageDigest {
public:
    // A new digest (owned by the caller, suited to mw::AutoPtr), or null when
    // the algorithm or the provider is unknown.
    static MessageDigest* getInstance(const std::string& algorithm, const char* provider = nullptr);

    ~MessageDigest();
    MessageDigest(const MessageDigest&) = delete;
    MessageDigest& operator=(const MessageDigest&) = delete;

    const std::string& getAlgorithm() const { return algorithm_; }
    std::size_t getDigestLength() const;

    void update(const unsigned char* data, std::size_t length);

    // Finishes the hash of everything passed to update and starts afresh.
    // The hash is a new[] array of outLength bytes, owned by the caller
    // (mw::AutoPtr with mw::ArrayDeallocator).
    unsigned char* digest(std::size_t& outLength);

    // update(data, length), then digest(outLength).
    unsigned char* digest(std::size_t& outLength, const unsigned char* data, std::size_t length);

    // Drops what was passed to update since the last digest.
    void reset();

private:
    MessageDigest(std::string algorithm, std::unique_ptr<CryptoPP::HashTransformation> hash);

    std::string algorithm_;
    std::unique_ptr<CryptoPP::HashTransformation> hash_;
};

} // namespace cryptoapi

#endif
