#ifndef PKCS11_MECHANISMS_HPP
#define PKCS11_MECHANISMS_HPP

#include "pkcs11/Cryptoki.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace pkcs11 {

enum class Padding { Pkcs1, Pss, Oaep };

// A mechanism the module offers: what it is good for, and the algorithm
// (dotted OID) it stands for.
struct Mechanism {
    CK_MECHANISM_TYPE type;
    CK_FLAGS flags;
    Padding padding;
    // The signature OID of PKCS#1 v1.5 (rsaEncryption for plain CKM_RSA_PKCS);
    // for RSA-PSS and RSAES-OAEP the algorithm, whose hash the parameters name.
    const char* algorithmOid;
    const char* digestOid; // empty when the caller hashes
};

// A hash that RSA-PSS and RSAES-OAEP parameters can name, with its MGF1.
struct ParameterHash {
    CK_MECHANISM_TYPE type;
    CK_RSA_PKCS_MGF_TYPE mgf;
    const char* oid;
    std::size_t length;
};

// The modulus sizes the application keeps on a card (1024, 1536 and 2048
// bits); the plugin's interface does not tell them, so they are stated here.
constexpr CK_ULONG smallestKeyBits = 1024;
constexpr CK_ULONG largestKeyBits = 2048;

const std::vector<Mechanism>& mechanisms();
// The mechanism of this type; CKR_MECHANISM_INVALID when there is none.
const Mechanism& mechanismFor(CK_MECHANISM_TYPE type);

// The private-key half of a mechanism (CKF_SIGN or CKF_DECRYPT, and CKF_HW),
// which needs the card to perform its algorithm.
constexpr CK_FLAGS cardFlags = CKF_HW | CKF_SIGN | CKF_DECRYPT;
// The flags of a mechanism for a token: RSA-PSS and RSAES-OAEP keep only
// their software half when the card does not perform them.
CK_FLAGS offeredFlags(const Mechanism& mechanism, bool cardPerforms);

// The algorithm the plugin and the software provider know a mechanism with
// these parameters by ("<algorithm>/<hash>" for RSA-PSS and RSAES-OAEP), and
// the hash they name; CKR_MECHANISM_PARAM_INVALID for parameters the card
// and the module cannot take (RSA-PSS: SHA-256, SHA-384 or SHA-512, MGF1 of
// the same hash, salt as long as the hash; RSAES-OAEP: SHA-1 or SHA-256,
// MGF1 of the same hash, no label).
struct Parameters {
    std::string algorithm;
    const ParameterHash* hash = nullptr; // null for PKCS#1 v1.5
};
Parameters parametersOf(const Mechanism& mechanism, const CK_MECHANISM& given);

// What a card that lists the algorithm performs, to probe it with.
std::string probeAlgorithm(const Mechanism& mechanism);

} // namespace pkcs11

#endif
