#ifndef TOOLS_P15TOOL_SCHEMES_HPP
#define TOOLS_P15TOOL_SCHEMES_HPP

#include <string>
#include <vector>

namespace app {
class IApplication;
}

namespace p15tool {

// An RSA scheme the card performs itself or not at all: the plugin has no
// software half of its private-key operation. Its engines are named
// "<scheme OID>/<hash OID>".
struct Scheme {
    const char* name;                // in messages: "RSA-PSS"
    const char* oid;                 // what a card that performs it lists
    const char* option;              // the command-line flag that asks for it
    bool signs;                      // a signature scheme, else an encryption scheme
    std::vector<std::string> hashes; // those it takes, as --alg names them
};

// RSASSA-PSS (salt as long as the hash) and RSAES-OAEP (empty label), MGF1
// with the same hash as the scheme.
extern const Scheme rsaPss;
extern const Scheme rsaOaep;

// The algorithm identifier the plugin's engines take for `scheme` with `hash`.
std::string algorithmOf(const Scheme& scheme, const std::string& hash);

// Whether the plugin hands out the engine of `scheme` with `hash`: it
// refuses one the card does not perform, which costs no PIN.
bool performs(const app::IApplication& application, const Scheme& scheme, const std::string& hash);

// A ToolError (card) unless performs(), saying so in one line.
void requirePerformed(const app::IApplication& application, const Scheme& scheme,
                      const std::string& hash);

} // namespace p15tool

#endif
