#ifndef TOOLS_P15TOOL_KEYS_HPP
#define TOOLS_P15TOOL_KEYS_HPP

#include "app/object/ICardObjectFactory.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/object/KeyUsage.hpp"
#include "tools/p15tool/Choice.hpp"
#include "tools/p15tool/Enrolment.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Pins.hpp"

#include <boost/shared_ptr.hpp>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace p15tool {

class Session;

using KeyChoice = ObjectChoice;

// Adds --label L and --id HEX for a key.
void addKeyChoice(CLI::App& command, KeyChoice& choice);

// The card's RSA key pair `choice` names, or without a choice the only one:
// its private key and, when the card lists one with the same identifier,
// its public key. A choice that matches nothing, or several keys without a
// choice, is a ToolError that says how to list the keys.
struct KeyPair {
    boost::shared_ptr<app::object::IPrivateRSAKey> privateKey;
    boost::shared_ptr<app::object::IPublicRSAKey> publicKey;
};
KeyPair chooseKeyPair(const Session& session, const KeyChoice& choice);

// A ToolError (card) unless the usage of `pair`'s private key allows
// `operation`, naming the key, what its usage allows and the usage bits;
// it reads nothing from the card, so it runs before any PIN is asked for.
void requireUsage(const KeyPair& pair, app::object::KeyOperation operation);

// The factory of the card's application, for new objects.
app::object::ICardObjectFactory& factoryOf(const Session& session);

// The rules of a new object whose `modes` (AccessControlRule bits) need the
// PIN with `authId` verified.
app::AccessControlRules pinRules(const mw::ByteBuffer& authId, std::uint16_t modes);

// The objects of a new key pair of `bits`, not on the card yet, both with
// `label` and `id`: the private key signs and deciphers, and changes, only
// once the PIN with `authId` is verified; the public key, readable by
// anyone, verifies and enciphers.
KeyPair newKeyPair(const Session& session, const std::string& label, const mw::ByteBuffer& id,
                   const mw::ByteBuffer& authId, unsigned bits);

// The identifier of a new key whose --id was not given: the SHA-1 of its
// modulus, which ties a key, its public key and its certificate together
// the way other software expects.
mw::ByteBuffer modulusKeyId(const mw::ByteBuffer& modulus);

// --id's hex digits as bytes; anything else is a usage ToolError.
mw::ByteBuffer idFromHex(const std::string& text);

// A ToolError when the card holds a private key with `id` already.
void refuseTakenId(const Session& session, const mw::ByteBuffer& id);

// The public key of `pair` with its modulus and exponent read from the card;
// a pair without one is a ToolError (not found).
const app::object::IPublicRSAKey& readPublicKey(const Session& session, const KeyPair& pair);

// The modulus and exponent of a public key read from the card.
enrolment::RsaPublicKey publicKeyOf(const app::object::IPublicRSAKey& key);

// The card's signature of `data` with `key` under the signature algorithm
// `oid` (dotted), through the plugin's signature engine. The PIN the key
// needs must be verified.
mw::ByteBuffer signOnCard(const Session& session, const app::object::IPrivateKey& key,
                          const std::string& oid, const mw::ByteBuffer& data);

// "Signing key", or "key 45AB" for a key without a label.
std::string keyName(const app::object::IKey& key);

// Whether deleting `key` (a private key when `privateKey`) leaves the key
// itself on the card. The plugin deletes only the key files it allocates:
// under a reference 81 to 92, in the file 0E or 0F with the reference's key
// id in the PKCS#15 DF (docs/card-profile.md, RSA keys); of any other key
// only the entries go.
bool keyStaysOnCard(const app::object::IKey& key, bool privateKey);

// A key as `list` shows it: the common attributes of every object, then its
// identifier, usage, access flags, modulus length and key reference.
Json keyJson(const app::object::IKey& key, const PinList& pins);

} // namespace p15tool

#endif
