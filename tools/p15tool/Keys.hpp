#ifndef TOOLS_P15TOOL_KEYS_HPP
#define TOOLS_P15TOOL_KEYS_HPP

#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
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

// Which key a command means: by label or by identifier (hex).
struct KeyChoice {
    std::optional<std::string> label;
    std::optional<std::string> id;
    bool given() const { return label || id; }
};

// Adds --label L and --id HEX, which exclude each other.
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

// The public key of `pair` with its modulus and exponent read from the card;
// a pair without one is a ToolError (not found).
const app::object::IPublicRSAKey& readPublicKey(const Session& session, const KeyPair& pair);

// The modulus and exponent of a public key read from the card.
enrolment::RsaPublicKey publicKeyOf(const app::object::IPublicRSAKey& key);

// "Signing key", or "key 45AB" for a key without a label.
std::string keyName(const app::object::IKey& key);

// A key as `list` shows it: the common attributes of every object, then its
// identifier, usage, access flags, modulus length and key reference.
Json keyJson(const app::object::IKey& key, const PinList& pins);

} // namespace p15tool

#endif
