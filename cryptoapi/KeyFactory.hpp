#ifndef CRYPTOAPI_KEYFACTORY_HPP
#define CRYPTOAPI_KEYFACTORY_HPP

#include <string>

namespace cryptoapi {

class KeySpec;
class PublicKey;

// Turns key specifications into keys. The one factory is RSA's, looked up as
// "2.5.8.1.1" (the RSA algorithm of X.500) or as rsaEncryption
// ("1.2.840.113549.1.1.1").
class KeyFactory {
public:
    // A new factory (owned by the caller, suited to mw::AutoPtr), or null when
    // the algorithm or the provider is unknown.
    static KeyFactory* getInstance(const std::string& algorithm, const char* provider = nullptr);

    const std::string& getAlgorithm() const { return algorithm_; }

    // A new public key (owned by the caller) from an RSAPublicKeySpec.
    // Throws InvalidKeySpecException for any other spec and for values that
    // cannot be an RSA public key: the key is checked here, once, so that a
    // hostile card cannot make verification or enciphering misbehave.
    PublicKey* generatePublic(const KeySpec& spec) const;

private:
    explicit KeyFactory(std::string algorithm)
        : algorithm_(std::move(algorithm)) {}

    std::string algorithm_;
};

} // namespace cryptoapi

#endif
