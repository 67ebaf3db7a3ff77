#include "app/pkcs15/impl/RsaSignatureEngine.hpp"

#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/impl/EngineKeys.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "card/service/ICryptographyService.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/MessageDigest.hpp"
#include "cryptoapi/PublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "cryptoapi/Signature.hpp"
#include "mw/AutoPtr.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {
namespace impl {

namespace {

constexpr unsigned char sequenceTag = 0x30;
constexpr unsigned char oidTag = 0x06;
constexpr unsigned char nullTag = 0x05;
constexpr unsigned char octetStringTag = 0x04;
// A card command carries 1 to 65535 bytes of data, chained or not; a
// hash-and-sign command without data is refused too.
constexpr std::size_t maxCommandData = 65535;

// Appends tag, DER length and content.
void appendTlv(mw::ByteBuffer& out, unsigned char tag, const mw::ByteBuffer& content) {
    out.append(tag);
    const std::size_t length = content.size();
    if (length < 0x80) {
        out.append(static_cast<unsigned char>(length));
    } else {
        unsigned char octets = 0;
        for (std::size_t rest = length; rest != 0; rest >>= 8) {
            ++octets;
        }
        out.append(static_cast<unsigned char>(0x80 | octets));
        for (unsigned char i = octets; i-- > 0;) {
            out.append(static_cast<unsigned char>(length >> (8 * i)));
        }
    }
    out.append(content);
}

} // namespace

RsaSignatureEngine::RsaSignatureEngine(
    boost::shared_ptr<card::service::ICardSignature> cardSignature, AlgorithmReferenceLookup lookup)
    : cardSignature_(std::move(cardSignature))
    , lookup_(std::move(lookup)) {}

RsaSignatureEngine::RsaSignatureEngine(
    boost::shared_ptr<card::service::ICardSignature> cardSignature, const AlgorithmRow& row,
    AlgorithmReferenceLookup lookup)
    : RsaSignatureEngine(cardSignature, row, cardSignature) {
    lookup_ = std::move(lookup);
}

RsaSignatureEngine::RsaSignatureEngine(
    boost::shared_ptr<card::service::ICardSignature> cardSignature, const AlgorithmRow& row,
    boost::shared_ptr<card::service::ICardSignature> rawRsa)
    : cardSignature_(std::move(cardSignature))
    , rawRsa_(std::move(rawRsa))
    , signatureOid_(row.signatureOid)
    , hashOid_(row.hashOid)
    , hashOidHex_(row.hashOidHex) {}

const std::string& RsaSignatureEngine::getAlgorithm() const {
    return cardSignature_->getAlgorithm();
}

void RsaSignatureEngine::init(const card::IChannel& channel, OperationMode mode,
                              const app::object::IKey& key) {
    if (mode == Sign) {
        key_ = boundKeyRef(channel, privateKeyFor(key, app::object::KeyOperation::sign), lookup_);
        cardSignature_->init(channel, key_, card::service::ICardKeyOperation::Sign);
    } else {
        copyPublicKey(publicKeyOf(key), modulus_, publicExponent_);
    }
}

// DigestInfo ::= SEQUENCE { SEQUENCE { hash OID, NULL }, OCTET STRING hash }
mw::ByteBuffer RsaSignatureEngine::digestInfo(const mw::ByteBuffer& data) const {
    const mw::AutoPtr<cryptoapi::MessageDigest> digest(
        cryptoapi::MessageDigest::getInstance(hashOid_, nullptr));
    std::size_t hashLength = 0;
    const mw::AutoPtr<unsigned char> hash(digest->digest(hashLength, data.data(), data.size()));

    mw::ByteBuffer algorithm;
    appendTlv(algorithm, oidTag, util::hexToBytes(hashOidHex_));
    algorithm.append(nullTag);
    algorithm.append(0x00);
    mw::ByteBuffer content;
    appendTlv(content, sequenceTag, algorithm);
    appendTlv(content, octetStringTag, mw::ByteBuffer(hash.get(), hashLength));
    mw::ByteBuffer encoded;
    appendTlv(encoded, sequenceTag, content);
    return encoded;
}

mw::ByteBuffer RsaSignatureEngine::sign(const card::IChannel& channel,
                                        const mw::ByteBuffer& data) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (cardTakes(data)) {
        return cardSignature_->sign(channel, data);
    }
    if (rawRsa_ != cardSignature_) {
        rawRsa_->init(channel, key_, card::service::ICardKeyOperation::Sign);
    }
    return rawRsa_->sign(channel, digestInfo(data));
}

bool RsaSignatureEngine::cardTakes(const mw::ByteBuffer& data) const {
    if (!rawRsa_) {
        return true;
    }
    return rawRsa_ != cardSignature_ && !data.empty() && data.size() <= maxCommandData;
}

bool RsaSignatureEngine::verify(const card::IChannel&, const mw::ByteBuffer& data,
                                const mw::ByteBuffer& signature) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const cryptoapi::RSAPublicKeySpec spec(modulus_, publicExponent_);
    const mw::AutoPtr<cryptoapi::Signature> verifier(cryptoapi::Signature::getInstance(
        signatureOid_.empty() ? cardSignature_->getAlgorithm() : signatureOid_, nullptr));
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance(rsaKeyFactory, nullptr));
    const mw::AutoPtr<cryptoapi::PublicKey> publicKey(factory->generatePublic(spec));
    verifier->initVerify(*publicKey);
    verifier->update(data.data(), data.size());
    const bool verified = verifier->verify(signature.data(), signature.size());
    log.addParamOut("verified", verified);
    return verified;
}

} // namespace impl
} // namespace pkcs15
} // namespace app
