#ifndef APP_PKCS15_IMPL_ENGINEKEYS_HPP
#define APP_PKCS15_IMPL_ENGINEKEYS_HPP

#include "app/object/KeyUsage.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <functional>
#include <optional>

namespace card {
class IChannel;
}

namespace app {
namespace object {
class IKey;
}
namespace pkcs15 {
namespace object {
class P15RsaPrivateKey;
class P15RsaPublicKey;
} // namespace object

namespace impl {

// The crypto provider's RSA key factory: the RSA algorithm of X.500.
extern const char* const rsaKeyFactory;

// The key as the application's own RSA key; an application exception
// "failed to cast from IKey to ..." for any other kind.
const object::P15RsaPublicKey& publicKeyOf(const app::object::IKey& key);
// The private key also needs a usage that allows `operation` (sign or
// decrypt): otherwise an application exception "the key's usage does not
// allow signing" or "… deciphering", with the usage bits as its data, before
// anything goes to the card.
const object::P15RsaPrivateKey& privateKeyFor(const app::object::IKey& key,
                                              app::object::KeyOperation operation);

/// The card's algorithm reference to bind a private key with, looked up
/// when an engine binds the key; no function: the card layer chooses.
using AlgorithmReferenceLookup = std::function<std::optional<unsigned char>(
    const card::IChannel& channel, const app::object::IKey& key)>;

/// The key's KeyRef, with the algorithm reference `lookup` gives for it.
card::service::KeyRef boundKeyRef(const card::IChannel& channel, const app::object::IKey& key,
                                  const AlgorithmReferenceLookup& lookup);

// Replaces `modulus` and `exponent` by the key's; an InvalidDataException
// when either is then empty.
void copyPublicKey(const object::P15RsaPublicKey& key, mw::ByteBuffer& modulus,
                   mw::ByteBuffer& exponent);

} // namespace impl
} // namespace pkcs15
} // namespace app

#endif
