#ifndef TOOLS_P15TOOL_ENROLMENT_HPP
#define TOOLS_P15TOOL_ENROLMENT_HPP

#include "tools/p15tool/Der.hpp"

#include <ctime>
#include <functional>

// The documents that enrol a key: a PKCS#10 certification request and a
// self-signed X.509 v3 certificate, both signed with sha256WithRSAEncryption
// by whoever holds the private key (the card).
namespace p15tool::enrolment {

using der::Bytes;

// Signs the DER to be signed with SHA-256 and RSA PKCS#1 v1.5; returns the
// signature, as long as the modulus.
using Signer = std::function<Bytes(const Bytes& toBeSigned)>;

// An RSA public key, modulus and exponent big-endian unsigned.
struct RsaPublicKey {
    Bytes modulus;
    Bytes exponent;
};

Bytes subjectPublicKeyInfo(const RsaPublicKey& key);

Bytes certificationRequest(const Bytes& subject, const RsaPublicKey& key, const Signer& sign);

struct Validity {
    std::time_t notBefore;
    std::time_t notAfter;
};

// Issuer and subject are both `subject`; the serial number is positive,
// big-endian unsigned. The extensions: subject and authority key identifier
// (SHA-1 of the public key) and basic constraints CA (critical), so that
// the certificate is its own trust anchor.
Bytes selfSignedCertificate(const Bytes& subject, const RsaPublicKey& key, const Validity& validity,
                            const Bytes& serialNumber, const Signer& sign);

} // namespace p15tool::enrolment

#endif
