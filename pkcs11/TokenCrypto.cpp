// The token's card-side cryptography through the plugin's engines: RSA
// signatures and deciphering with the keys on the card, and the card's
// random numbers.
#include "pkcs11/Token.hpp"

#include "app/ApplicationException.hpp"
#include "app/IApplication.hpp"
#include "app/crypto/ICipher.hpp"
#include "app/crypto/IRandom.hpp"
#include "app/crypto/ISignature.hpp"
#include "app/object/IKey.hpp"
#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {

const app::object::IKey& cardKey(const Object& key) {
    const auto* found = dynamic_cast<const app::object::IKey*>(key.source().get());
    if (!found) {
        throw Failure(CKR_KEY_HANDLE_INVALID);
    }
    return *found;
}

} // namespace

mw::ByteBuffer Token::sign(const Object& key, const mw::ByteBuffer& input,
                           const std::string& algorithm) {
    const auto engine = application_->getSignature(algorithm);
    engine->init(channel(), app::crypto::ISignature::Sign, cardKey(key));
    return engine->sign(channel(), input);
}

mw::ByteBuffer Token::decipher(const Object& key, const mw::ByteBuffer& cipherText,
                               const std::string& algorithm) {
    const auto engine = application_->getCipher(algorithm);
    engine->init(channel(), app::crypto::ICipher::Decipher, cardKey(key));
    return engine->decipher(channel(), cipherText);
}

// The plugin refuses an algorithm the card does not perform when asked for
// its engine, before any card command.
bool Token::performs(const Mechanism& mechanism) {
    const auto known = performed_.find(mechanism.type);
    if (known != performed_.end()) {
        return known->second;
    }
    const std::string algorithm = probeAlgorithm(mechanism);
    bool found = true;
    try {
        if (mechanism.flags & CKF_SIGN) {
            application_->getSignature(algorithm);
        } else {
            application_->getCipher(algorithm);
        }
    } catch (const app::ApplicationException&) {
        found = false;
    }
    return performed_[mechanism.type] = found;
}

void Token::offerMechanisms(Object& object) {
    const CK_OBJECT_CLASS objectClass = object.objectClass();
    if (objectClass != CKO_PRIVATE_KEY && objectClass != CKO_PUBLIC_KEY) {
        return;
    }
    object.defer({CKA_ALLOWED_MECHANISMS}, [this, objectClass](Attributes& attributes) {
        const auto allows = [&](CK_ATTRIBUTE_TYPE type) {
            const Bytes* value = attributes.find(type);
            return value && value->size() == 1 && value->front() != CK_FALSE;
        };
        const bool privateKey = objectClass == CKO_PRIVATE_KEY;
        const CK_FLAGS uses =
            (allows(privateKey ? CKA_SIGN : CKA_VERIFY) ? CKF_SIGN | CKF_VERIFY : 0) |
            (allows(privateKey ? CKA_DECRYPT : CKA_ENCRYPT) ? CKF_DECRYPT | CKF_ENCRYPT : 0);
        const CK_FLAGS ownHalf = privateKey ? CKF_SIGN | CKF_DECRYPT : CKF_VERIFY | CKF_ENCRYPT;
        std::vector<CK_MECHANISM_TYPE> allowed;
        for (const Mechanism& mechanism : mechanisms()) {
            if (offeredFlags(mechanism, performs(mechanism)) & uses & ownHalf) {
                allowed.push_back(mechanism.type);
            }
        }
        const auto* bytes = reinterpret_cast<const unsigned char*>(allowed.data());
        attributes.setBytes(CKA_ALLOWED_MECHANISMS,
                            Bytes(bytes, bytes + allowed.size() * sizeof(CK_MECHANISM_TYPE)));
    });
}

mw::ByteBuffer Token::random(std::size_t count) {
    return application_->getRandom()->generate(channel(), count);
}

} // namespace pkcs11
