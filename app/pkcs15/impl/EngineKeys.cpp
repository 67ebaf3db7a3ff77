#include "app/pkcs15/impl/EngineKeys.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"

namespace app {
namespace pkcs15 {
namespace impl {

const char* const rsaKeyFactory = "2.5.8.1.1";

const object::P15RsaPublicKey& publicKeyOf(const app::object::IKey& key) {
    const auto* publicKey = dynamic_cast<const object::P15RsaPublicKey*>(&key);
    if (publicKey == nullptr) {
        APP_THROW(ApplicationException, "failed to cast from IKey to P15RsaPublicKey");
    }
    return *publicKey;
}

const object::P15RsaPrivateKey& privateKeyFor(const app::object::IKey& key,
                                              app::object::KeyOperation operation) {
    const auto* privateKey = dynamic_cast<const object::P15RsaPrivateKey*>(&key);
    if (privateKey == nullptr) {
        APP_THROW(ApplicationException, "failed to cast from IKey to P15RsaPrivateKey");
    }
    if (!app::object::usageAllows(key.getUsage(), operation)) {
        APP_THROW_DATA(ApplicationException,
                       operation == app::object::KeyOperation::sign
                           ? "the key's usage does not allow signing"
                           : "the key's usage does not allow deciphering",
                       key.getUsage());
    }
    return *privateKey;
}

card::service::KeyRef boundKeyRef(const card::IChannel& channel, const app::object::IKey& key,
                                  const AlgorithmReferenceLookup& lookup) {
    card::service::KeyRef ref = key.getKeyReference();
    if (lookup) {
        ref.algorithmReference = lookup(channel, key);
    }
    return ref;
}

void copyPublicKey(const object::P15RsaPublicKey& key, mw::ByteBuffer& modulus,
                   mw::ByteBuffer& exponent) {
    modulus = key.getModulus();
    exponent = key.getPublicExponent();
    if (modulus.empty() || exponent.empty()) {
        APP_THROW(InvalidDataException, "modulus and public exponent must not be empty");
    }
}

} // namespace impl
} // namespace pkcs15
} // namespace app
