#pragma once

#include "vcard/Bytes.hpp"
#include "vcard/CardState.hpp"

#include <cstdint>
#include <optional>

namespace vcard {

/// What COMPUTE DIGITAL SIGNATURE does with its data under an algorithm reference of MANAGE
/// SECURITY ENVIRONMENT: 01 signs the data as given; 11 to 15 (a card that hashes) sign the
/// DigestInfo of its SHA-1, SHA-224, SHA-256, SHA-384 or SHA-512 hash.
namespace algorithm {
constexpr std::uint8_t rsaPkcs1 = 0x01;
constexpr std::uint8_t sha1WithRsa = 0x11;
constexpr std::uint8_t sha512WithRsa = 0x15;
/// The iso profile's own references, which MANAGE SECURITY ENVIRONMENT must name: RSA PKCS#1
/// v1.5 signing of the data as given, and RSA PKCS#1 v1.5 deciphering.
constexpr std::uint8_t isoRsaSign = 0x02;
constexpr std::uint8_t isoRsaDecipher = 0x0A;
} // namespace algorithm

/// The algorithm reference a MANAGE SECURITY ENVIRONMENT for signing (or else deciphering) sets
/// when it names `named` (tag 80) or nothing; nullopt when the card refuses it.
std::optional<std::uint8_t> chosenAlgorithm(const CardState& state, bool signing,
                                            std::optional<std::uint8_t> named);

/// The answer to GET DATA for the algorithm list: rsaEncryption, and the hash-and-sign
/// algorithms of a card that hashes.
Bytes algorithmList(bool hashOnCard);

/// The bytes the card pads and signs for `data` under an offered algorithm reference.
Bytes toBeSigned(std::uint8_t reference, const Bytes& data);

} // namespace vcard
