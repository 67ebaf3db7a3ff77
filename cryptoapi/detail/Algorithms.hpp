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

// The digest OID of an RSA PKCS#1 v1.5 signature OID; empty for
// rsaEncryption (the signed bytes are taken as given); null for an OID that
// is no such signature.
const char* hashOfSignature(const std::string& signatureOid);

// Refuses a null pointer that is said to hold bytes.
void requireBytes(const unsigned char* data, std::size_t length, const char* what);

} // namespace detail
} // namespace cryptoapi

#endif
