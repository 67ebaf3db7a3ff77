#ifndef CRYPTOAPI_DETAIL_ALGORITHMS_HPP
#define CRYPTOAPI_DETAIL_ALGORITHMS_HPP

#include <cstddef>
#include <memory>
#include <string>

namespace CryptoPP {
class HashTransformation;
}

namespace cryptoapi {
namespace detail {

extern const std::string rsaEncryptionOid;
extern const std::string rsaKeyFactoryOid;

// True for no provider and for this provider's own name.
bool isOwnProvider(const char* provider);

// A fresh hash for a digest OID, or null for an unknown one.
std::unique_ptr<CryptoPP::HashTransformation> createHash(const std::string& digestOid);

// An RSA signature algorithm. PKCS#1 v1.5 hashes the data with hashOid, or
// takes it as given when hashOid is empty (rsaEncryption). PSS takes the
// data as the message's hash and runs its encoding with hashOid.
struct SignatureAlgorithm {
    const char* oid;
    const char* hashOid;
    bool pss;
};

// The signature algorithm of an OID or "<PSS OID>/<hash OID>" identifier, or
// null for any other name.
const SignatureAlgorithm* findSignature(const std::string& identifier);

// Refuses a null pointer that is said to hold bytes.
void requireBytes(const unsigned char* data, std::size_t length, const char* what);

} // namespace detail
} // namespace cryptoapi

#endif
