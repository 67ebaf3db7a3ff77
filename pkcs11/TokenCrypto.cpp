// The token's card-side cryptography through the plugin's engines: RSA
// signatures and deciphering with the keys on the card, and the card's
// random numbers.
#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IRandom.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IKey.hpp"
#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {

// Plain RSA: the card pads and applies the key; hashing and the DigestInfo
// are the module's, so that messages can come in parts.
const char* const rsaEncryption = "1.2.840.113549.1.1.1";

const app::object::IKey& cardKey(const Object& key) {
    const auto* found = dynamic_cast<const app::object::IKey*>(key.source().get());
    if (!found) {
        throw Failure(CKR_KEY_HANDLE_INVALID);
    }
    return *found;
}

} // namespace

mw::ByteBuffer Token::sign(const Object& key, const mw::ByteBuffer& input) {
    const auto engine = application_->getSignature(rsaEncryption);
    engine->init(channel(), app::crypto::ISignature::Sign, cardKey(key));
    return engine->sign(channel(), input);
}

mw::ByteBuffer Token::decipher(const Object& key, const mw::ByteBuffer& cipherText) {
    const auto engine = application_->getCipher(rsaEncryption);
    engine->init(channel(), app::crypto::ICipher::Decipher, cardKey(key));
    return engine->decipher(channel(), cipherText);
}

mw::ByteBuffer Token::random(std::size_t count) {
    return application_->getRandom()->generate(channel(), count);
}

} // namespace pkcs11
