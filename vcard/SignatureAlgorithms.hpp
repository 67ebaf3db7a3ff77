#pragma once

#include "vcard/Bytes.hpp"

#include <cstdint>

namespace vcard {

/// What COMPUTE DIGITAL SIGNATURE does with its data under an algorithm reference of MANAGE
/// SECURITY ENVIRONMENT: 01 signs the data as given; 11 to 15 (a card that hashes) sign the
/// DigestInfo of its SHA-1, SHA-224, SHA-256, SHA-384 or SHA-512 hash.
namespace algorithm {
constexpr std::uint8_t rsaPkcs1 = 0x01;
constexpr std::uint8_t sha1WithRsa = 0x11;
constexpr std::uint8_t sha512WithRsa = 0x15;
} // namespace algorithm

/// Whether the card offers the algorithm reference for signing.
bool offersSignatureAlgorithm(std::uint8_t reference, bool hashOnCard);

/// The answer to GET DATA for the algorithm list: rsaEncryption, and the hash-and-sign
/// algorithms of a card that hashes.
Bytes algorithmList(bool hashOnCard);

/// The bytes the card pads and signs for `data` under an offered algorithm reference.
Bytes toBeSigned(std::uint8_t reference, const Bytes& data);

} // namespace vcard
