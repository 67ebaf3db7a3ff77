#ifndef PKCS11_CERTIFICATEFIELDS_HPP
#define PKCS11_CERTIFICATEFIELDS_HPP

#include "pkcs11/Attributes.hpp"

#include <optional>

namespace pkcs11 {

// What PKCS#11 shows of an X.509 certificate, each as its DER encoding:
// the subject and issuer Names, the serial number INTEGER, and the RSA
// public key when the certificate holds one.
struct CertificateFields {
    Bytes subject;
    Bytes issuer;
    Bytes serialNumber;
    Bytes modulus;  // empty when the key is not RSA
    Bytes exponent; // big-endian, without the INTEGER's header
};

// Reads the fields out of a DER certificate; nothing for bytes that are no
// certificate (truncated, overlong lengths, wrong tags): a card's data is
// not to be trusted.
std::optional<CertificateFields> parseCertificate(const Bytes& der);

/// True for bytes that are one certificate in DER, as a client must give
/// one: a single SEQUENCE whose length takes the fewest octets and ends
/// where the bytes end, holding the fields parseCertificate reads.
bool isDerCertificate(const Bytes& der);

} // namespace pkcs11

#endif
