#include "cryptoapi/detail/Pkcs1.hpp"

#include <cryptopp/asn.h>
#include <cryptopp/misc.h>
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
    const CryptoPP::Integer& modulus = key.GetModulus();
    const std::size_t blockLength = modulus.ByteCount();
    // A signature is exactly as long as the modulus (RFC 8017, 8.2.2 step 1).
    if (signatureLength != blockLength || payloadLength + pkcs1Overhead > blockLength) {
        return false;
    }
    const CryptoPP::Integer value(signature, signatureLength);
    if (value >= modulus) {
        return false;
    }
    CryptoPP::SecByteBlock recovered(blockLength);
    key.ApplyFunction(value).Encode(recovered, recovered.size());

    CryptoPP::SecByteBlock expected(blockLength);
    const std::size_t payloadStart = blockLength - payloadLength;
    expected[0] = 0x00;
    expected[1] = 0x01;
    std::fill(expected.begin() + 2, expected.begin() + payloadStart - 1, 0xFF);
    expected[payloadStart - 1] = 0x00;
    std::copy(payload, payload + payloadLength, expected.begin() + payloadStart);
    return CryptoPP::VerifyBufsEqual(recovered, expected, blockLength);
}

} // namespace detail
} // namespace cryptoapi
