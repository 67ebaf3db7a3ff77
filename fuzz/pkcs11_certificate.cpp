// A certificate's value as the PKCS#11 module reads it from a card for
// CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER and the key it certifies: any
// bytes give the fields or nothing. The fields given are DER elements of
// the kinds named (two Names, an INTEGER), within the input, and an RSA key
// has both its numbers.
#include "pkcs11/CertificateFields.hpp"

#include <cstdlib>

namespace {

void requireElement(const pkcs11::Bytes& element, unsigned char tag, std::size_t inputSize) {
    if (element.size() < 2 || element.size() > inputSize || element[0] != tag) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto fields = pkcs11::parseCertificate(pkcs11::Bytes(data, data + size));
    if (fields) {
        requireElement(fields->subject, 0x30, size);
        requireElement(fields->issuer, 0x30, size);
        requireElement(fields->serialNumber, 0x02, size);
        if (fields->modulus.empty() != fields->exponent.empty()) {
            std::abort();
        }
    }
    return 0;
}
