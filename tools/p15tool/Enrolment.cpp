#include "tools/p15tool/Enrolment.hpp"

#include <cryptopp/sha.h>

namespace p15tool::enrolment {

namespace {

const char* const rsaEncryption = "1.2.840.113549.1.1.1";
const char* const sha256WithRsaEncryption = "1.2.840.113549.1.1.11";
const char* const subjectKeyIdentifierOid = "2.5.29.14";
const char* const basicConstraintsOid = "2.5.29.19";
const char* const authorityKeyIdentifierOid = "2.5.29.35";

Bytes signatureAlgorithm() {
    return der::sequence({der::objectIdentifier(sha256WithRsaEncryption), der::null()});
}

Bytes signed_(const Bytes& toBeSigned, const Signer& sign) {
    return der::sequence({toBeSigned, signatureAlgorithm(), der::bitString(sign(toBeSigned))});
}

Bytes rsaPublicKey(const RsaPublicKey& key) {
    return der::sequence({der::unsignedInteger(key.modulus), der::unsignedInteger(key.exponent)});
}

// The key identifier most software computes: the SHA-1 of the
// subjectPublicKey bits, the DER RSAPublicKey.
Bytes keyIdentifier(const RsaPublicKey& key) {
    const Bytes encoded = rsaPublicKey(key);
    Bytes digest(CryptoPP::SHA1::DIGESTSIZE);
    CryptoPP::SHA1().CalculateDigest(digest.data(), encoded.data(), encoded.size());
    return digest;
}

Bytes extension(const char* oid, bool critical, const Bytes& value) {
    if (critical) {
        return der::sequence(
            {der::objectIdentifier(oid), der::boolean(true), der::octetString(value)});
    }
    return der::sequence({der::objectIdentifier(oid), der::octetString(value)});
}

Bytes extensions(const RsaPublicKey& key) {
    const Bytes keyId = keyIdentifier(key);
    return der::explicitTag(
        3, der::sequence({
               extension(subjectKeyIdentifierOid, false, der::octetString(keyId)),
               // AuthorityKeyIdentifier ::= SEQUENCE { keyIdentifier [0] IMPLICIT ... }
               extension(authorityKeyIdentifierOid, false, der::sequence({der::tlv(0x80, keyId)})),
               extension(basicConstraintsOid, true, der::sequence({der::boolean(true)})),
           }));
}

} // namespace

Bytes subjectPublicKeyInfo(const RsaPublicKey& key) {
    return der::sequence({der::sequence({der::objectIdentifier(rsaEncryption), der::null()}),
                          der::bitString(rsaPublicKey(key))});
}

Bytes certificationRequest(const Bytes& subject, const RsaPublicKey& key, const Signer& sign) {
    // No attributes: [0] IMPLICIT SET OF Attribute, empty.
    const Bytes info = der::sequence(
        {der::smallInteger(0), subject, subjectPublicKeyInfo(key), der::tlv(0xA0, {})});
    return signed_(info, sign);
}

Bytes selfSignedCertificate(const Bytes& subject, const RsaPublicKey& key, const Validity& validity,
                            const Bytes& serialNumber, const Signer& sign) {
    const Bytes version = der::explicitTag(0, der::smallInteger(2));
    const Bytes tbs =
        der::sequence({version, der::unsignedInteger(serialNumber), signatureAlgorithm(), subject,
                       der::sequence({der::time(validity.notBefore), der::time(validity.notAfter)}),
                       subject, subjectPublicKeyInfo(key), extensions(key)});
    return signed_(tbs, sign);
}

} // namespace p15tool::enrolment
