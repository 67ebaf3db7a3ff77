#ifndef APP_PKCS15_IMPL_RSACIPHERENGINE_HPP
#define APP_PKCS15_IMPL_RSACIPHERENGINE_HPP

#include "app/crypto/ICipher.hpp"
#include "app/pkcs15/impl/EngineKeys.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/shared_ptr.hpp>
#include <string>

namespace card {
namespace service {
class ICardCipher;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace impl {

// RSA enciphering of the application: the card deciphers with its private
// key; enciphering runs in software on a copy of a public key, with the
// padding the card operation's algorithm names.
class RsaCipherEngine : public app::crypto::ICipher {
public:
    explicit RsaCipherEngine(boost::shared_ptr<card::service::ICardCipher> cardCipher,
                             AlgorithmReferenceLookup lookup = {});

    const std::string& getAlgorithm() const override;
    // The card's answer as it is: the card removes the padding.
    mw::ByteBuffer decipher(const card::IChannel& channel,
                            const mw::ByteBuffer& data) const override;
    // Never touches the channel.
    mw::ByteBuffer encipher(const card::IChannel& channel,
                            const mw::ByteBuffer& data) const override;
    void init(const card::IChannel& channel, OperationMode mode,
              const app::object::IKey& key) override;

private:
    boost::shared_ptr<card::service::ICardCipher> cardCipher_;
    // The card algorithm reference of the key, when the card layer does
    // not choose it.
    AlgorithmReferenceLookup lookup_;
    mw::ByteBuffer publicExponent_;
    mw::ByteBuffer modulus_;
};

} // namespace impl
} // namespace pkcs15
} // namespace app

#endif
