#include "pkcs11/CertificateFields.hpp"

#include <cryptopp/queue.h>
#include <cryptopp/rsa.h>

namespace pkcs11 {

namespace {

constexpr unsigned char sequenceTag = 0x30;
constexpr unsigned char integerTag = 0x02;
constexpr unsigned char explicitVersionTag = 0xA0;

// One DER element within [begin, end): where it starts and ends, and where
// its content starts.
struct Element {
    std::size_t begin = 0;
    std::size_t content = 0;
    std::size_t end = 0;
    unsigned char tag = 0;
};

// The element at `at`, definite lengths of up to four octets only, wholly
// inside `limit`; nothing otherwise.
std::optional<Element> elementAt(const Bytes& der, std::size_t at, std::size_t limit) {
    if (at + 2 > limit) {
        return std::nullopt;
    }
    Element element{at, at + 2, 0, der[at]};
    std::size_t length = der[at + 1];
    if (length & 0x80) {
        const std::size_t octets = length & 0x7F;
        if (octets == 0 || octets > 4 || element.content + octets > limit) {
            return std::nullopt;
        }
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) {
            length = (length << 8) | der[element.content + i];
        }
        element.content += octets;
    }
    if (length > limit - element.content) {
        return std::nullopt;
    }
    element.end = element.content + length;
    return element;
}

Bytes bytesOf(const Bytes& der, const Element& element) {
    return Bytes(der.begin() + element.begin, der.begin() + element.end);
}

void readRsaKey(const Bytes& spki, CertificateFields& fields) {
    try {
        CryptoPP::ByteQueue queue;
        queue.Put(spki.data(), spki.size());
        CryptoPP::RSA::PublicKey key;
        key.BERDecode(queue);
        fields.modulus.resize(key.GetModulus().MinEncodedSize());
        key.GetModulus().Encode(fields.modulus.data(), fields.modulus.size());
        fields.exponent.resize(key.GetPublicExponent().MinEncodedSize());
        key.GetPublicExponent().Encode(fields.exponent.data(), fields.exponent.size());
    } catch (const CryptoPP::Exception&) {
        fields.modulus.clear(); // another kind of key
        fields.exponent.clear();
    }
}

// DER writes a length in as few octets as it takes.
bool hasShortestLength(const Element& element) {
    const std::size_t length = element.end - element.content;
    const std::size_t longFormOctets = element.content - element.begin - 2;
    std::size_t needed = 0;
    for (std::size_t rest = length; length >= 0x80 && rest != 0; rest >>= 8) {
        ++needed;
    }
    return longFormOctets == needed;
}

} // namespace

std::optional<CertificateFields> parseCertificate(const Bytes& der) {
    const auto certificate = elementAt(der, 0, der.size());
    if (!certificate || certificate->tag != sequenceTag) {
        return std::nullopt;
    }
    const auto tbs = elementAt(der, certificate->content, certificate->end);
    if (!tbs || tbs->tag != sequenceTag) {
        return std::nullopt;
    }
    // version [0] (optional), serialNumber, signature, issuer, validity,
    // subject, subjectPublicKeyInfo
    std::vector<Element> fields;
    for (std::size_t at = tbs->content; at < tbs->end && fields.size() < 7;) {
        const auto element = elementAt(der, at, tbs->end);
        if (!element) {
            return std::nullopt;
        }
        if (!(fields.empty() && element->tag == explicitVersionTag)) {
            fields.push_back(*element);
        }
        at = element->end;
    }
    if (fields.size() < 6 || fields[0].tag != integerTag || fields[2].tag != sequenceTag ||
        fields[4].tag != sequenceTag || fields[5].tag != sequenceTag) {
        return std::nullopt;
    }
    CertificateFields result{
        bytesOf(der, fields[4]), bytesOf(der, fields[2]), bytesOf(der, fields[0]), {}, {}};
    readRsaKey(bytesOf(der, fields[5]), result);
    return result;
}

bool isDerCertificate(const Bytes& der) {
    const auto certificate = elementAt(der, 0, der.size());
    return certificate && certificate->end == der.size() && hasShortestLength(*certificate) &&
           parseCertificate(der).has_value();
}

} // namespace pkcs11
