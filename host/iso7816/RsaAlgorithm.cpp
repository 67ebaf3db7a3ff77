#include "host/iso7816/RsaAlgorithm.hpp"

#include <algorithm>
#include <iterator>

namespace host {
namespace iso7816 {

const std::string rsaEncryptionOid = "1.2.840.113549.1.1.1";

namespace {

const RsaAlgorithm signatureAlgorithms[] = {
    {rsaEncryptionOid, 0x01},        {"1.2.840.113549.1.1.5", 0x11}, // sha1WithRSAEncryption
    {"1.2.840.113549.1.1.14", 0x12},                                 // sha224WithRSAEncryption
    {"1.2.840.113549.1.1.11", 0x13},                                 // sha256WithRSAEncryption
    {"1.2.840.113549.1.1.12", 0x14},                                 // sha384WithRSAEncryption
    {"1.2.840.113549.1.1.13", 0x15},                                 // sha512WithRSAEncryption
};

} // namespace

const RsaAlgorithm* findSignatureAlgorithm(const std::string& oid) {
    const auto found = std::find_if(std::begin(signatureAlgorithms), std::end(signatureAlgorithms),
                                    [&](const RsaAlgorithm& a) { return a.oid == oid; });
    return found == std::end(signatureAlgorithms) ? nullptr : found;
}

const RsaAlgorithm& rsaEncryption() {
    return signatureAlgorithms[0];
}

} // namespace iso7816
} // namespace host
