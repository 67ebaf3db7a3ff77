#pragma once

#include "vcard/Bytes.hpp"

#include <cstddef>
#include <optional>

namespace CryptoPP {
class HashTransformation;
class RandomNumberGenerator;
} // namespace CryptoPP

namespace vcard {

/// The encodings the card applies around its private RSA operation. Blocks have the modulus
/// length k; encoding refusals throw CardError(6A80).

/// PKCS#1 v1.5 block type 1: 00 01 FF..FF 00 data. Data over k − 11 bytes is refused.
Bytes type1Block(const Bytes& data, std::size_t k);

/// The message behind PKCS#1 v1.5 block type 2 padding; nullopt when the padding is bad.
/// Visits every byte whatever the block holds.
std::optional<Bytes> type2Message(const Bytes& block);

/// EMSA-PSS encoding of a hash for a modulus of modulusBits: MGF1 with the same hash, a fresh
/// salt as long as the hash, emBits = modulusBits − 1, trailer BC; behind a 00 byte when emBits
/// is a multiple of 8. A hash of another length than the function's, or a modulus too small
/// for two hashes and two bytes, is refused.
Bytes pssEncode(CryptoPP::HashTransformation& hash, const Bytes& digest, unsigned modulusBits,
                CryptoPP::RandomNumberGenerator& rng);

/// The message behind EME-OAEP encoding with an empty label and MGF1 with the same hash;
/// nullopt whatever is wrong, after the same work. Intermediate values are wiped.
std::optional<Bytes> oaepMessage(CryptoPP::HashTransformation& hash, const Bytes& block);

} // namespace vcard
