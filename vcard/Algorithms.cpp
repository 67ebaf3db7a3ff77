#include "vcard/Algorithms.hpp"

#include "vcard/RsaKey.hpp"
#include "vcard/RsaPadding.hpp"
#include "vcard/StatusWord.hpp"

#include <cryptopp/pkcspad.h>
#include <cryptopp/sha.h>

#include <memory>

namespace vcard {

namespace {

// DER content of the OIDs of rsaEncryption (1.2.840.113549.1.1.1) and of
// sha1WithRSAEncryption (…1.1.5), sha224 (…1.1.14), sha256 (…1.1.11),
// sha384 (…1.1.12) and sha512 (…1.1.13), in algorithm reference order; then
// id-RSASSA-PSS (…1.1.10) and id-RSAES-OAEP (…1.1.7).
const Bytes pkcs1Arc = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01};
constexpr std::uint8_t rsaEncryptionArc = 0x01;
constexpr std::uint8_t hashAndSignArcs[] = {0x05, 0x0E, 0x0B, 0x0C, 0x0D};
constexpr std::uint8_t paddingSchemeArcs[] = {0x0A, 0x07};

/// A PSS (signing) or OAEP (deciphering) reference and the hash its encoding uses.
struct HashedPadding {
    std::uint8_t reference;
    bool signing;
    std::unique_ptr<CryptoPP::HashTransformation> (*makeHash)();
};

template <class Hash> std::unique_ptr<CryptoPP::HashTransformation> makeHash() {
    return std::make_unique<Hash>();
}

constexpr HashedPadding hashedPaddings[] = {
    {algorithm::pssSha256, true, makeHash<CryptoPP::SHA256>},
    {algorithm::pssSha384, true, makeHash<CryptoPP::SHA384>},
    {algorithm::pssSha512, true, makeHash<CryptoPP::SHA512>},
    {algorithm::oaepSha1, false, makeHash<CryptoPP::SHA1>},
    {algorithm::oaepSha256, false, makeHash<CryptoPP::SHA256>},
};

const HashedPadding* hashedPadding(std::uint8_t reference, bool signing) {
    for (const HashedPadding& padding : hashedPaddings)
        if (padding.reference == reference && padding.signing == signing)
            return &padding;
    return nullptr;
}

void appendOid(Bytes& list, std::uint8_t lastArc) {
    list.push_back(0x06);
    list.push_back(static_cast<std::uint8_t>(pkcs1Arc.size() + 1));
    list.insert(list.end(), pkcs1Arc.begin(), pkcs1Arc.end());
    list.push_back(lastArc);
}

template <class Hash> Bytes digestInfo(const Bytes& data) {
    Bytes info(CryptoPP::PKCS_DigestDecoration<Hash>::decoration,
               CryptoPP::PKCS_DigestDecoration<Hash>::decoration +
                   CryptoPP::PKCS_DigestDecoration<Hash>::length);
    Hash hash;
    hash.Update(data.data(), data.size());
    const std::size_t prefix = info.size();
    info.resize(prefix + Hash::DIGESTSIZE);
    hash.Final(info.data() + prefix);
    return info;
}

/// The bytes the card pads and signs for `data` under reference 01 or 11 to 15.
Bytes toBeSigned(std::uint8_t reference, const Bytes& data) {
    switch (reference) {
    case algorithm::sha1WithRsa:
        return digestInfo<CryptoPP::SHA1>(data);
    case algorithm::sha1WithRsa + 1:
        return digestInfo<CryptoPP::SHA224>(data);
    case algorithm::sha1WithRsa + 2:
        return digestInfo<CryptoPP::SHA256>(data);
    case algorithm::sha1WithRsa + 3:
        return digestInfo<CryptoPP::SHA384>(data);
    case algorithm::sha512WithRsa:
        return digestInfo<CryptoPP::SHA512>(data);
    default:
        return data;
    }
}

} // namespace

std::optional<std::uint8_t> chosenAlgorithm(const CardState& state, bool signing,
                                            std::optional<std::uint8_t> named) {
    if (state.profile == CardProfile::Iso) {
        // No default: the reference TokenInfo gives for the operation, and no other.
        const std::uint8_t own = signing ? algorithm::isoRsaSign : algorithm::isoRsaDecipher;
        return named == own ? named : std::nullopt;
    }
    const std::uint8_t reference = named.value_or(algorithm::rsaPkcs1);
    const bool hashAndSign = signing && state.hashOnCard && reference >= algorithm::sha1WithRsa &&
                             reference <= algorithm::sha512WithRsa;
    if (reference == algorithm::rsaPkcs1 || hashAndSign || hashedPadding(reference, signing))
        return reference;
    return std::nullopt;
}

Bytes algorithmList(bool hashOnCard) {
    Bytes list = {0xA0, 0x00};
    appendOid(list, rsaEncryptionArc);
    if (hashOnCard) {
        for (std::uint8_t arc : hashAndSignArcs)
            appendOid(list, arc);
    }
    for (std::uint8_t arc : paddingSchemeArcs)
        appendOid(list, arc);
    list[1] = static_cast<std::uint8_t>(list.size() - 2);
    return list;
}

Bytes sign(const RsaKey& key, CryptoPP::RandomNumberGenerator& rng, std::uint8_t reference,
           const Bytes& data) {
    if (const HashedPadding* pss = hashedPadding(reference, true))
        return key.privateOperation(rng, pssEncode(*pss->makeHash(), data, key.bits(), rng));
    return key.privateOperation(rng, type1Block(toBeSigned(reference, data), key.modulusBytes()));
}

Bytes decipher(const RsaKey& key, CryptoPP::RandomNumberGenerator& rng, std::uint8_t reference,
               const Bytes& cryptogram) {
    Bytes block = key.privateOperation(rng, cryptogram);
    const HashedPadding* oaep = hashedPadding(reference, false);
    std::optional<Bytes> message =
        oaep ? oaepMessage(*oaep->makeHash(), block) : type2Message(block);
    wipe(block);
    if (!message)
        throw CardError(sw::wrongData);
    return std::move(*message);
}

} // namespace vcard
