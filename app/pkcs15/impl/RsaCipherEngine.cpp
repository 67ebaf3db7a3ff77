#include "app/pkcs15/impl/RsaCipherEngine.hpp"

#include "app/pkcs15/impl/EngineKeys.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "card/service/ICryptographyService.hpp"
#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/PublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "mw/AutoPtr.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {
namespace impl {

RsaCipherEngine::RsaCipherEngine(boost::shared_ptr<card::service::ICardCipher> cardCipher,
                                 AlgorithmReferenceLookup lookup)
    : cardCipher_(std::move(cardCipher))
    , lookup_(std::move(lookup)) {}

const std::string& RsaCipherEngine::getAlgorithm() const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return cardCipher_->getAlgorithm();
}

void RsaCipherEngine::init(const card::IChannel& channel, OperationMode mode,
                           const app::object::IKey& key) {
    if (mode == Decipher) {
        cardCipher_->init(
            channel,
            boundKeyRef(channel, privateKeyFor(key, app::object::KeyOperation::decrypt), lookup_),
            card::service::ICardKeyOperation::Decipher);
    } else {
        copyPublicKey(publicKeyOf(key), modulus_, publicExponent_);
    }
}

mw::ByteBuffer RsaCipherEngine::decipher(const card::IChannel& channel,
                                         const mw::ByteBuffer& data) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return cardCipher_->decipher(channel, data);
}

mw::ByteBuffer RsaCipherEngine::encipher(const card::IChannel&, const mw::ByteBuffer& data) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const cryptoapi::RSAPublicKeySpec spec(modulus_, publicExponent_);
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance(rsaKeyFactory, nullptr));
    const mw::AutoPtr<cryptoapi::PublicKey> publicKey(factory->generatePublic(spec));
    const mw::AutoPtr<cryptoapi::Cipher> cipher(
        cryptoapi::Cipher::getInstance(cardCipher_->getAlgorithm(), nullptr));
    cipher->init(cryptoapi::CipherSPI::ENCRYPT_MODE, *publicKey);
    std::size_t length = 0;
    const mw::AutoPtr<unsigned char> enciphered(cipher->doFinal(length, data.data(), data.size()));
    return mw::ByteBuffer(enciphered.get(), length);
}

} // namespace impl
} // namespace pkcs15
} // namespace app
