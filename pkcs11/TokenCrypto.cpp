// The token's card-side cryptography: RSA signatures and deciphering with
// the keys on the card, and the card's random numbers.
#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/object/IKey.hpp"
#include "card/ICard.hpp"
#include "card/service/ICryptographyService.hpp"
#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {

// The card pads and applies the key; hashing and the DigestInfo are the
// module's.
const char* const rsaEncryption = "1.2.840.113549.1.1.1";

} // namespace

boost::shared_ptr<card::service::ICryptographyService> Token::cryptography() const {
    auto service = boost::dynamic_pointer_cast<card::service::ICryptographyService>(
        card_->getInterface("CryptographyService"));
    if (!service) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the card offers no cryptography");
    }
    return service;
}

void Token::bindKey(card::service::ICardKeyOperation& operation, const Object& key,
                    int mode) const {
    const auto* cardKey = dynamic_cast<const app::object::IKey*>(key.source().get());
    if (!cardKey) {
        throw Failure(CKR_KEY_HANDLE_INVALID);
    }
    // The card finds key files below the current DF: make it the application's.
    application_->select(channel());
    operation.init(channel(), cardKey->getKeyReference(), mode);
}

mw::ByteBuffer Token::sign(const Object& key, const mw::ByteBuffer& input) {
    const auto operation = cryptography()->getSignature(rsaEncryption);
    if (!operation) {
        throw Failure(CKR_MECHANISM_INVALID, "the card does not sign with RSA");
    }
    bindKey(*operation, key, card::service::ICardKeyOperation::Sign);
    return operation->sign(channel(), input);
}

mw::ByteBuffer Token::decipher(const Object& key, const mw::ByteBuffer& cipherText) {
    const auto operation = cryptography()->getCipher(rsaEncryption);
    if (!operation) {
        throw Failure(CKR_MECHANISM_INVALID, "the card does not decipher with RSA");
    }
    bindKey(*operation, key, card::service::ICardKeyOperation::Decipher);
    return operation->decipher(channel(), cipherText);
}

mw::ByteBuffer Token::random(std::size_t count) {
    const auto generator = cryptography()->getRandom();
    if (!generator) {
        throw Failure(CKR_RANDOM_NO_RNG);
    }
    return generator->generate(channel(), count);
}

} // namespace pkcs11
