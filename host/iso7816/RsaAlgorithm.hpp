#ifndef HOST_ISO7816_RSAALGORITHM_HPP
#define HOST_ISO7816_RSAALGORITHM_HPP

#include <string>

namespace host {
namespace iso7816 {

// rsaEncryption: PKCS#1 v1.5 padding, no hashing.
extern const std::string rsaEncryptionOid;

// An RSA algorithm of the card profile and its algorithm reference in
// MANAGE SECURITY ENVIRONMENT. An algorithm with a hash parameter (RSA-PSS,
// RSAES-OAEP) is named "<algorithm>/<hash>"; the card lists the algorithm
// alone and performs it with each hash of the profile.
struct RsaAlgorithm {
    std::string oid;
    unsigned char reference;
};

// The signature algorithm of the profile with this identifier: raw
// rsaEncryption, SHA-1 to SHA-512 with RSA hashed by the card, or RSA-PSS
// of a SHA-256, SHA-384 or SHA-512 hash; null for any other.
const RsaAlgorithm* findSignatureAlgorithm(const std::string& oid);

// The deciphering algorithm of the profile with this identifier:
// rsaEncryption, or RSAES-OAEP with SHA-1 or SHA-256; null for any other.
const RsaAlgorithm* findCipherAlgorithm(const std::string& oid);

// What a card lists when it performs the algorithm: the identifier without
// its hash parameter.
std::string listedIdentifier(const std::string& oid);

} // namespace iso7816
} // namespace host

#endif
