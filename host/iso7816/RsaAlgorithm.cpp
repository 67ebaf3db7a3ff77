#include "host/iso7816/RsaAlgorithm.hpp"

#include <algorithm>
#include <iterator>

namespace host {
namespace iso7816 {

const std::string rsaEncryptionOid = "1.2.840.113549.1.1.1";

namespace {

const RsaAlgorithm signatureAlgorithms[] = {
    {rsaEncryptionOid, 0x01},
    {"1.2.840.113549.1.1.5", 0x11},                         // sha1WithRSAEncryption
    {"1.2.840.113549.1.1.14", 0x12},                        // sha224WithRSAEncryption
    {"1.2.840.113549.1.1.11", 0x13},                        // sha256WithRSAEncryption
    {"1.2.840.113549.1.1.12", 0x14},                        // sha384WithRSAEncryption
    {"1.2.840.113549.1.1.13", 0x15},                        // sha512WithRSAEncryption
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.1", 0x23}, // RSA-PSS, SHA-256
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.2", 0x24}, // RSA-PSS, SHA-384
    {"1.2.840.113549.1.1.10/2.16.840.1.101.3.4.2.3", 0x25}, // RSA-PSS, SHA-512
};

const RsaAlgorithm cipherAlgorithms[] = {
    {rsaEncryptionOid, 0x01},
    {"1.2.840.113549.1.1.7/1.3.14.3.2.26", 0x31},          // RSAES-OAEP, SHA-1
    {"1.2.840.113549.1.1.7/2.16.840.1.101.3.4.2.1", 0x33}, // RSAES-OAEP, SHA-256
};

template <std::size_t N>
const RsaAlgorithm* find(const RsaAlgorithm (&table)[N], const std::string& oid) {
    const auto found = std::find_if(std::begin(table), std::end(table),
                                    [&](const RsaAlgorithm& a) { return a.oid == oid; });
    return found == std::end(table) ? nullptr : found;
}

} // namespace

const RsaAlgorithm* findSignatureAlgorithm(const std::string& oid) {
    return find(signatureAlgorithms, oid);
}

const RsaAlgorithm* findCipherAlgorithm(const std::string& oid) {
    return find(cipherAlgorithms, oid);
}

std::string listedIdentifier(const std::string& oid) {
    return oid.substr(0, oid.find('/'));
}

} // namespace iso7816
} // namespace host
