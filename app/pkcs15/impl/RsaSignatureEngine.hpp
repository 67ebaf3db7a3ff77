#ifndef APP_PKCS15_IMPL_RSASIGNATUREENGINE_HPP
#define APP_PKCS15_IMPL_RSASIGNATUREENGINE_HPP

#include "app/IApplication.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/pkcs15/impl/EngineKeys.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/shared_ptr.hpp>
#include <string>

namespace card {
namespace service {
class ICardSignature;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace impl {

// RSA signatures of the application: the card signs, optionally after the
// engine hashed the data and wrapped the hash in a DigestInfo; verification
// runs in software on a copy of a public key's modulus and exponent.
// Signing checks the private key's usage before it touches the card.
class RsaSignatureEngine : public app::crypto::ISignature {
public:
    // The card signs what it is given (raw RSA, or an algorithm the card
    // performs whole).
    explicit RsaSignatureEngine(boost::shared_ptr<card::service::ICardSignature> cardSignature,
                                AlgorithmReferenceLookup lookup = {});
    // The engine hashes with the row's hash algorithm; the card applies raw
    // RSA to the DigestInfo.
    RsaSignatureEngine(boost::shared_ptr<card::service::ICardSignature> cardSignature,
                       const AlgorithmRow& row, AlgorithmReferenceLookup lookup = {});
    // The card hashes and signs what its command takes (1 to 65535 bytes);
    // other messages the engine hashes with the row's hash algorithm, and
    // `rawRsa`, bound to the key in place of `cardSignature`, signs the
    // DigestInfo.
    RsaSignatureEngine(boost::shared_ptr<card::service::ICardSignature> cardSignature,
                       const AlgorithmRow& row,
                       boost::shared_ptr<card::service::ICardSignature> rawRsa);

    // The card signature operation's algorithm.
    const std::string& getAlgorithm() const override;
    mw::ByteBuffer sign(const card::IChannel& channel, const mw::ByteBuffer& data) const override;
    // Never touches the channel.
    bool verify(const card::IChannel& channel, const mw::ByteBuffer& data,
                const mw::ByteBuffer& signature) const override;
    void init(const card::IChannel& channel, OperationMode mode,
              const app::object::IKey& key) override;

private:
    mw::ByteBuffer digestInfo(const mw::ByteBuffer& data) const;
    // Whether the card signs `data` as it is: it performs the algorithm
    // whole, and for a hash-and-sign algorithm `data` fits its command.
    bool cardTakes(const mw::ByteBuffer& data) const;

    // The operation init binds to the key.
    boost::shared_ptr<card::service::ICardSignature> cardSignature_;
    // Raw RSA for the DigestInfos the engine builds; null when it builds none.
    boost::shared_ptr<card::service::ICardSignature> rawRsa_;
    // The card algorithm reference of the key, when the card layer does
    // not choose it.
    AlgorithmReferenceLookup lookup_;
    card::service::KeyRef key_;
    std::string signatureOid_;
    std::string hashOid_;
    std::string hashOidHex_;
    mw::ByteBuffer publicExponent_;
    mw::ByteBuffer modulus_;
};

} // namespace impl
} // namespace pkcs15
} // namespace app

#endif
