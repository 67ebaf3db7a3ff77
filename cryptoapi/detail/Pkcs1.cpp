#include "cryptoapi/detail/Pkcs1.hpp"

#include <cryptopp/asn.h>
#include <cryptopp/misc.h>
#include <cryptopp/pubkey.h>
#include <cryptopp/queue.h>
#include <cryptopp/rsa.h>

#include <algorithm>
#include <sstream>

namespace cryptoapi {
namespace detail {

namespace {

// Block type 1 needs 00 01, at least eight FF and a 00 before the payload.
constexpr std::size_t pkcs1Overhead = 11;

CryptoPP::OID parseOid(const std::string& dotted) {
    CryptoPP::OID oid;
    std::istringstream arcs(dotted);
    for (std::string arc; std::getline(arcs, arc, '.');) {
        oid += static_cast<CryptoPP::word32>(std::stoul(arc));
    }
    return oid;
}

// The public operation on a signature that is exactly as long as the modulus
// (RFC 8017, 8.2.2 and 8.1.2 step 1) and below it; false for any other.
bool openSignature(const CryptoPP::RSAFunction& key, const unsigned char* signature,
                   std::size_t length, CryptoPP::Integer& representative) {
    const CryptoPP::Integer& modulus = key.GetModulus();
    if (length != modulus.ByteCount()) {
        return false;
    }
    const CryptoPP::Integer value(signature, length);
    if (value >= modulus) {
        return false;
    }
    representative = key.ApplyFunction(value);
    return true;
}

} // namespace

std::vector<unsigned char> digestInfoPrefix(const std::string& digestOid,
                                            std::size_t digestLength) {
    CryptoPP::ByteQueue der;
    {
        CryptoPP::DERSequenceEncoder digestInfo(der);
        {
            CryptoPP::DERSequenceEncoder algorithm(digestInfo);
            parseOid(digestOid).DEREncode(algorithm);
            CryptoPP::DEREncodeNull(algorithm);
            algorithm.MessageEnd();
        }
        const std::vector<CryptoPP::byte> placeholder(digestLength);
        CryptoPP::DEREncodeOctetString(digestInfo, placeholder.data(), placeholder.size());
        digestInfo.MessageEnd();
    }
    std::vector<unsigned char> prefix(static_cast<std::size_t>(der.MaxRetrievable()));
    der.Get(prefix.data(), prefix.size());
    prefix.resize(prefix.size() - digestLength);
    return prefix;
}

bool verifyPkcs1v15(const CryptoPP::RSAFunction& key, const unsigned char* signature,
                    std::size_t signatureLength, const unsigned char* payload,
                    std::size_t payloadLength) {
    const std::size_t blockLength = key.GetModulus().ByteCount();
    CryptoPP::Integer representative;
    if (payloadLength + pkcs1Overhead > blockLength ||
        !openSignature(key, signature, signatureLength, representative)) {
        return false;
    }
    CryptoPP::SecByteBlock recovered(blockLength);
    representative.Encode(recovered, recovered.size());

    CryptoPP::SecByteBlock expected(blockLength);
    const std::size_t payloadStart = blockLength - payloadLength;
    expected[0] = 0x00;
    expected[1] = 0x01;
    std::fill(expected.begin() + 2, expected.begin() + payloadStart - 1, 0xFF);
    expected[payloadStart - 1] = 0x00;
    std::copy(payload, payload + payloadLength, expected.begin() + payloadStart);
    return CryptoPP::VerifyBufsEqual(recovered, expected, blockLength);
}

bool verifyPss(const CryptoPP::RSAFunction& key, CryptoPP::HashTransformation& hash,
               const unsigned char* signature, std::size_t signatureLength,
               const unsigned char* messageHash, std::size_t messageHashLength) {
    const std::size_t hashLength = hash.DigestSize();
    const std::size_t saltLength = hashLength;
    const unsigned int emBits = key.GetModulus().BitCount() - 1;
    const std::size_t emLength = (emBits + 7) / 8;
    CryptoPP::Integer representative;
    // A representative of more than emBits bits fails I2OSP or has one of
    // EM's leftmost bits set (RFC 8017, 8.1.2 step 2c; 9.1.2 step 6).
    if (messageHashLength != hashLength || emLength < hashLength + saltLength + 2 ||
        !openSignature(key, signature, signatureLength, representative) ||
        representative.BitCount() > emBits) {
        return false;
    }
    // EM = maskedDB || H || BC
    CryptoPP::SecByteBlock em(emLength);
    representative.Encode(em, em.size());
    if (em[emLength - 1] != 0xBC) {
        return false;
    }
    const std::size_t dbLength = emLength - hashLength - 1;
    unsigned char* const db = em.begin();
    const unsigned char* const h = db + dbLength;
    CryptoPP::P1363_MGF1KDF2_Common(hash, db, dbLength, h, hashLength, nullptr, 0, true, 0);
    db[0] &= static_cast<unsigned char>(0xFF >> (8 * emLength - emBits));

    // DB = PS (zeros) || 01 || salt
    const std::size_t psLength = dbLength - saltLength - 1;
    if (std::any_of(db, db + psLength, [](unsigned char b) { return b != 0; }) ||
        db[psLength] != 0x01) {
        return false;
    }
    // H' = Hash(00 00 00 00 00 00 00 00 || mHash || salt)
    const unsigned char zeros[8] = {};
    hash.Update(zeros, sizeof zeros);
    hash.Update(messageHash, messageHashLength);
    hash.Update(db + psLength + 1, saltLength);
    CryptoPP::SecByteBlock expected(hashLength);
    hash.Final(expected);
    return CryptoPP::VerifyBufsEqual(h, expected, hashLength);
}

} // namespace detail
} // namespace cryptoapi
