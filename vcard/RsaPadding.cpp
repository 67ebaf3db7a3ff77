#include "vcard/RsaPadding.hpp"

#include "vcard/StatusWord.hpp"
#include "vcard/WipingAllocator.hpp"

#include <cryptopp/cryptlib.h>

#include <algorithm>

namespace vcard {

namespace {

/// 1 when the byte equals `value`, else 0, without a branch on the byte.
unsigned equals(std::uint8_t byte, std::uint8_t value) {
    const unsigned difference = static_cast<unsigned>(byte ^ value);
    return ((difference - 1) >> 8) & 1;
}

/// All ones when bit is 1, else 0.
std::size_t mask(unsigned bit) {
    return 0 - static_cast<std::size_t>(bit);
}

/// XORs MGF1(seed) over out: the hashes of seed ‖ counter (4 bytes big-endian) from 0 on.
void xorMgf1(CryptoPP::HashTransformation& hash, const std::uint8_t* seed, std::size_t seedSize,
             std::uint8_t* out, std::size_t outSize) {
    SecretBytes block(hash.DigestSize());
    for (std::uint32_t counter = 0; outSize > 0; ++counter) {
        const std::uint8_t counterBytes[4] = {
            static_cast<std::uint8_t>(counter >> 24), static_cast<std::uint8_t>(counter >> 16),
            static_cast<std::uint8_t>(counter >> 8), static_cast<std::uint8_t>(counter)};
        hash.Update(seed, seedSize);
        hash.Update(counterBytes, sizeof counterBytes);
        hash.Final(block.data());
        const std::size_t used = std::min(block.size(), outSize);
        for (std::size_t i = 0; i < used; ++i)
            out[i] ^= block[i];
        out += used;
        outSize -= used;
    }
}

} // namespace

Bytes type1Block(const Bytes& data, std::size_t k) {
    if (data.size() + 11 > k)
        throw CardError(sw::wrongData);
    Bytes block(k, 0xFF);
    block[0] = 0x00;
    block[1] = 0x01;
    block[k - data.size() - 1] = 0x00;
    std::copy(data.begin(), data.end(), block.end() - static_cast<std::ptrdiff_t>(data.size()));
    return block;
}

std::optional<Bytes> type2Message(const Bytes& block) {
    if (block.size() < 11)
        return std::nullopt;
    unsigned bad = block[0] | (block[1] ^ 0x02);
    std::size_t separator = 0;
    unsigned seen = 0;
    for (std::size_t i = 2; i < block.size(); ++i) {
        const unsigned isZero = equals(block[i], 0x00);
        separator |= i & mask(isZero & (seen ^ 1));
        seen |= isZero;
    }
    // At least eight padding bytes before the separator.
    bad |= (seen ^ 1) | static_cast<unsigned>(separator < 10);
    if (bad)
        return std::nullopt;
    return Bytes(block.begin() + static_cast<std::ptrdiff_t>(separator) + 1, block.end());
}

Bytes pssEncode(CryptoPP::HashTransformation& hash, const Bytes& digest, unsigned modulusBits,
                CryptoPP::RandomNumberGenerator& rng) {
    const std::size_t hashSize = hash.DigestSize();
    const unsigned emBits = modulusBits - 1;
    const std::size_t emSize = (emBits + 7) / 8, k = (modulusBits + 7) / 8;
    if (digest.size() != hashSize || emSize < 2 * hashSize + 2)
        throw CardError(sw::wrongData);
    Bytes salt(hashSize);
    rng.GenerateBlock(salt.data(), salt.size());
    // H = Hash(00 × 8 ‖ digest ‖ salt)
    const std::uint8_t zeros[8] = {};
    Bytes h(hashSize);
    hash.Update(zeros, sizeof zeros);
    hash.Update(digest.data(), digest.size());
    hash.Update(salt.data(), salt.size());
    hash.Final(h.data());
    // EM = maskedDB ‖ H ‖ BC with DB = 00..00 01 ‖ salt; k − emSize leading 00 bytes before it.
    Bytes block(k, 0x00);
    const std::size_t dbStart = k - emSize, hStart = k - 1 - hashSize;
    block[hStart - hashSize - 1] = 0x01;
    std::copy(salt.begin(), salt.end(),
              block.begin() + static_cast<std::ptrdiff_t>(hStart - hashSize));
    std::copy(h.begin(), h.end(), block.begin() + static_cast<std::ptrdiff_t>(hStart));
    block[k - 1] = 0xBC;
    xorMgf1(hash, h.data(), h.size(), block.data() + dbStart, hStart - dbStart);
    // The bits above emBits are cleared, so the block stays below the modulus.
    block[dbStart] &= static_cast<std::uint8_t>(0xFF >> (8 * emSize - emBits));
    return block;
}

std::optional<Bytes> oaepMessage(CryptoPP::HashTransformation& hash, const Bytes& block) {
    const std::size_t hashSize = hash.DigestSize();
    if (block.size() < 2 * hashSize + 2)
        return std::nullopt;
    // block = Y ‖ maskedSeed ‖ maskedDB; seed = maskedSeed ⊕ MGF1(maskedDB), DB = maskedDB ⊕
    // MGF1(seed).
    const auto seedStart = block.begin() + 1,
               dbStart = seedStart + static_cast<std::ptrdiff_t>(hashSize);
    SecretBytes seed(seedStart, dbStart), db(dbStart, block.end());
    xorMgf1(hash, db.data(), db.size(), seed.data(), seed.size());
    xorMgf1(hash, seed.data(), seed.size(), db.data(), db.size());

    // DB = Hash("") ‖ 00..00 ‖ 01 ‖ message; every byte is looked at whatever went wrong.
    Bytes labelHash(hashSize);
    hash.CalculateDigest(labelHash.data(), nullptr, 0);
    unsigned bad = block[0];
    for (std::size_t i = 0; i < hashSize; ++i)
        bad |= db[i] ^ labelHash[i];
    std::size_t separator = 0;
    unsigned looking = 1;
    for (std::size_t i = hashSize; i < db.size(); ++i) {
        const unsigned isOne = equals(db[i], 0x01), isZero = equals(db[i], 0x00);
        separator |= i & mask(looking & isOne);
        bad |= looking & ((isOne | isZero) ^ 1); // neither padding nor separator
        looking &= isOne ^ 1;
    }
    bad |= looking;
    if (bad)
        return std::nullopt;
    return Bytes(db.begin() + static_cast<std::ptrdiff_t>(separator) + 1, db.end());
}

} // namespace vcard
