#ifndef PKCS11_MECHANISMS_HPP
#define PKCS11_MECHANISMS_HPP

#include "pkcs11/Cryptoki.hpp"

#include <string>
#include <vector>

namespace pkcs11 {

// A mechanism the module offers: what it is good for, and the signature
// algorithm (dotted OID) it stands for.
struct Mechanism {
    CK_MECHANISM_TYPE type;
    CK_FLAGS flags;
    const char* signatureOid; // rsaEncryption for plain CKM_RSA_PKCS
    const char* digestOid;    // empty when the caller hashes
};

// The modulus sizes the application keeps on a card (1024, 1536 and 2048
// bits); the plugin's interface does not tell them, so they are stated here.
constexpr CK_ULONG smallestKeyBits = 1024;
constexpr CK_ULONG largestKeyBits = 2048;

const std::vector<Mechanism>& mechanisms();
// The mechanism of this type that can do `use` (a CKF_SIGN, CKF_VERIFY, ...
// flag); CKR_MECHANISM_INVALID when there is none.
const Mechanism& mechanismFor(CK_MECHANISM_TYPE type, CK_FLAGS use);

} // namespace pkcs11

#endif
