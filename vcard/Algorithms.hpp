#pragma once

#include "vcard/Bytes.hpp"
#include "vcard/CardState.hpp"

#include <cstdint>
#include <optional>

namespace CryptoPP {
class RandomNumberGenerator;
}

namespace vcard {

class RsaKey;

/// The algorithm references of MANAGE SECURITY ENVIRONMENT and what the security operations do
/// with their data under each.
namespace algorithm {
/// Signing (B6): 01 signs the data as given; 11 to 15 (a card that hashes) sign the DigestInfo of
/// its SHA-1, SHA-224, SHA-256, SHA-384 or SHA-512 hash; 23 to 25 sign a SHA-256, SHA-384 or
/// SHA-512 hash with RSASSA-PSS. Deciphering (B8): 01 PKCS#1 v1.5, 31 and 33 RSAES-OAEP with
/// SHA-1 and SHA-256.
constexpr std::uint8_t rsaPkcs1 = 0x01;
constexpr std::uint8_t sha1WithRsa = 0x11;
constexpr std::uint8_t sha512WithRsa = 0x15;
constexpr std::uint8_t pssSha256 = 0x23;
constexpr std::uint8_t pssSha384 = 0x24;
constexpr std::uint8_t pssSha512 = 0x25;
constexpr std::uint8_t oaepSha1 = 0x31;
constexpr std::uint8_t oaepSha256 = 0x33;
/// The iso profile's own references, which MANAGE SECURITY ENVIRONMENT must name: RSA PKCS#1
/// v1.5 signing of the data as given, and RSA PKCS#1 v1.5 deciphering.
constexpr std::uint8_t isoRsaSign = 0x02;
constexpr std::uint8_t isoRsaDecipher = 0x0A;
} // namespace algorithm

/// The algorithm reference a MANAGE SECURITY ENVIRONMENT for signing (or else deciphering) sets
/// when it names `named` (tag 80) or nothing; nullopt when the card refuses it.
std::optional<std::uint8_t> chosenAlgorithm(const CardState& state, bool signing,
                                            std::optional<std::uint8_t> named);

/// The answer to GET DATA for the algorithm list: rsaEncryption, the hash-and-sign algorithms of
/// a card that hashes, then RSASSA-PSS and RSAES-OAEP.
Bytes algorithmList(bool hashOnCard);

/// COMPUTE DIGITAL SIGNATURE of `data` under a reference chosenAlgorithm() gave for signing.
/// Data that the reference's encoding cannot take throws CardError(6A80).
Bytes sign(const RsaKey& key, CryptoPP::RandomNumberGenerator& rng, std::uint8_t reference,
           const Bytes& data);

/// DECIPHER of a cryptogram under a reference chosenAlgorithm() gave for deciphering. Any
/// cryptogram that does not open to a well-padded message throws CardError(6A80), the same
/// whatever was wrong.
Bytes decipher(const RsaKey& key, CryptoPP::RandomNumberGenerator& rng, std::uint8_t reference,
               const Bytes& cryptogram);

} // namespace vcard
