#ifndef CRYPTOAPI_SIGNATURE_HPP
#define CRYPTOAPI_SIGNATURE_HPP

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace CryptoPP {
class HashTransformation;
class RSAFunction;
} // namespace CryptoPP

namespace cryptoapi {

class MessageDigest;
class PublicKey;

// RSA signature verification, named by the dotted OID of the signature
// algorithm. PKCS#1 v1.5: md2/md5/sha1/sha224/sha256/sha384/sha512WithRSAEncryption
// and the RIPEMD-128/160 variants hash the data and check the DigestInfo;
// rsaEncryption ("1.2.840.113549.1.1.1") hashes nothing and checks the data
// as given (typically a DigestInfo the caller built). RSASSA-PSS, named
// "1.2.840.113549.1.1.10/<hash OID>" for SHA-256, SHA-384 and SHA-512: the
// data is the message's hash, which the caller computed; MGF1 with the same
// hash, a salt as long as the hash, trailer BC. Signing is the card's
// business: there are no private keys here.
class Signature {
public:
    // A new signature object (owned by the caller, suited to mw::AutoPtr),
    // or null when the algorithm or the provider is unknown.
    static Signature* getInstance(const std::string& algorithm, const char* provider = nullptr);

    ~Signature();
    Signature(const Signature&) = delete;
    Signature& operator=(const Signature&) = delete;

    const std::string& getAlgorithm() const { return algorithm_; }

    // Binds an RSA public key (InvalidKeyException for another kind) and
    // drops any data passed before.
    void initVerify(const PublicKey& key);

    // Adds data to be verified; IllegalStateException before initVerify.
    void update(const unsigned char* data, std::size_t length);

    // Whether the signature is valid for the data passed to update since
    // initVerify or the last verify; afterwards the object is ready for the
    // next data under the same key. A malformed signature is false, never
    // an exception: so is one that is not exactly the modulus length in
    // bytes (one without its leading zero bytes too). Under PSS, data that
    // is not exactly one hash long is false too.
    bool verify(const unsigned char* signature, std::size_t length);

private:
    Signature(std::string algorithm, std::unique_ptr<MessageDigest> digest,
              std::unique_ptr<CryptoPP::HashTransformation> pssHash);

    void requireKey() const;
    // The most data kept when it is taken as given: one hash for PSS, one
    // block for rsaEncryption.
    std::size_t dataLimit() const;
    // The bytes the signature must carry: DigestInfo of the hash, or the data.
    std::vector<unsigned char> takePayload();

    std::string algorithm_;
    std::unique_ptr<MessageDigest> digest_; // PKCS#1 v1.5 with a hash only
    std::vector<unsigned char> digestInfoPrefix_;
    std::unique_ptr<CryptoPP::HashTransformation> pssHash_; // PSS only
    std::unique_ptr<CryptoPP::RSAFunction> key_;
    // Without digest_: the data so far, and whether it outgrew any
    // payload the key could carry (then it is no longer kept).
    std::vector<unsigned char> data_;
    bool dataTooLong_ = false;
};

} // namespace cryptoapi

#endif
