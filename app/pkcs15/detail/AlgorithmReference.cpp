#include "app/pkcs15/detail/AlgorithmReference.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"

#include <algorithm>

namespace app {
namespace pkcs15 {
namespace detail {

namespace {

constexpr oss::Integer mechanismRsaPkcs = 1; // CKM_RSA_PKCS
// supportedOperations: compute-signature(1), decipher(5).
constexpr std::size_t computeSignatureBit = 1;
constexpr std::size_t decipherBit = 5;

bool hasBit(const oss::BitString& bits, std::size_t bit) {
    return bit < bits.bitCount && bit / 8 < bits.octets.size() &&
           (bits.octets[bit / 8] & (0x80 >> (bit % 8))) != 0;
}

bool namesNoOperation(const oss::BitString& bits) {
    return std::all_of(bits.octets.begin(), bits.octets.end(), [](auto o) { return o == 0; });
}

bool isRsaEncryption(const oss::AlgorithmInfo& info) {
    static const oss::Bytes rsaEncryption = oss::oidFromText("1.2.840.113549.1.1.1");
    return info.algId ? *info.algId == rsaEncryption : info.algorithm == mechanismRsaPkcs;
}

bool serves(const oss::AlgorithmInfo& info, KeyOperation operation) {
    const std::size_t bit = operation == KeyOperation::sign ? computeSignatureBit : decipherBit;
    return isRsaEncryption(info) &&
           (namesNoOperation(info.supportedOperations) || hasBit(info.supportedOperations, bit));
}

bool listed(const std::vector<std::uint32_t>& references, oss::Integer reference) {
    return std::find(references.begin(), references.end(), reference) != references.end();
}

} // namespace

std::optional<unsigned char>
cardAlgorithmReference(const std::vector<oss::AlgorithmInfo>& stated,
                       const boost::optional<std::vector<std::uint32_t>>& keyReferences,
                       KeyOperation operation) {
    const bool keyLists = keyReferences && !keyReferences->empty();
    for (const oss::AlgorithmInfo& info : stated) {
        if (serves(info, operation) && (!keyLists || listed(*keyReferences, info.reference))) {
            return oss::oneByteReference(info.algRef.value_or(info.reference));
        }
    }
    const bool described =
        keyLists && std::any_of(stated.begin(), stated.end(),
                                [&](const auto& i) { return listed(*keyReferences, i.reference); });
    if (keyLists && !described) {
        return oss::oneByteReference(keyReferences->front());
    }
    return std::nullopt;
}

} // namespace detail
} // namespace pkcs15
} // namespace app
