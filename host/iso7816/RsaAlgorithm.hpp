#ifndef HOST_ISO7816_RSAALGORITHM_HPP
#define HOST_ISO7816_RSAALGORITHM_HPP

#include <string>

namespace host {
namespace iso7816 {

// rsaEncryption: PKCS#1 v1.5 padding, no hashing.
extern const std::string rsaEncryptionOid;

// An RSA algorithm of the card profile and its algorithm reference in
// MANAGE SECURITY ENVIRONMENT.
struct RsaAlgorithm {
    std::string oid;
    unsigned char reference;
};

// The signature algorithm of the profile with this dotted identifier: raw
// rsaEncryption, or SHA-1 to SHA-512 with RSA hashed by the card; null for
// any other.
const RsaAlgorithm* findSignatureAlgorithm(const std::string& oid);
// rsaEncryption, the one deciphering algorithm.
const RsaAlgorithm& rsaEncryption();

} // namespace iso7816
} // namespace host

#endif
