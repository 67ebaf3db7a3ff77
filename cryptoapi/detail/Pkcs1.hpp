#ifndef CRYPTOAPI_DETAIL_PKCS1_HPP
#define CRYPTOAPI_DETAIL_PKCS1_HPP

#include <cstddef>
#include <string>
#include <vector>

namespace CryptoPP {
class HashTransformation;
class RSAFunction;
} // namespace CryptoPP

namespace cryptoapi {
namespace detail {

// The DER bytes of a DigestInfo for the dotted digest OID, up to the hash:
// SEQUENCE { SEQUENCE { OID, NULL }, OCTET STRING (digestLength bytes) }
// without the octet string's content.
std::vector<unsigned char> digestInfoPrefix(const std::string& digestOid, std::size_t digestLength);

// RSASSA-PKCS1-v1_5 verification of a signature over the encoded payload
// (a DigestInfo, or the bytes as given for rsaEncryption). The expected
// block 00 01 FF..FF 00 payload is built and compared whole, in constant
// time, rather than parsed out of the recovered block. A signature that is
// not exactly as long as the modulus in bytes, or not below it, does not
// verify: every host takes the same signatures, whatever the path.
bool verifyPkcs1v15(const CryptoPP::RSAFunction& key, const unsigned char* signature,
                    std::size_t signatureLength, const unsigned char* payload,
                    std::size_t payloadLength);

// RSASSA-PSS verification (RFC 8017, 8.1.2 and 9.1.2) of a signature over a
// message whose hash is given: MGF1 and the encoding use hash, the salt is as
// long as the hash, emBits is the modulus's bits less one. False as well for
// a message hash of another length, a signature not exactly as long as the
// modulus or not below it, and a key too small for the encoding.
bool verifyPss(const CryptoPP::RSAFunction& key, CryptoPP::HashTransformation& hash,
               const unsigned char* signature, std::size_t signatureLength,
               const unsigned char* messageHash, std::size_t messageHashLength);

} // namespace detail
} // namespace cryptoapi

#endif
