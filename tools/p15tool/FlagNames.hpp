#ifndef TOOLS_P15TOOL_FLAGNAMES_HPP
#define TOOLS_P15TOOL_FLAGNAMES_HPP

#include <initializer_list>

namespace p15tool {

// The names of PKCS#15 flag bits and enumerations, first bit first, as the
// JSON output spells them, shared by the decoder and the card commands.
using Names = std::initializer_list<const char*>;

inline const Names objectFlags = {"private", "modifiable"};
inline const Names accessModes = {"read", "update", "execute"};
inline const Names pinFlags = {"case-sensitive",
                               "local",
                               "change-disabled",
                               "unblock-disabled",
                               "initialized",
                               "needs-padding",
                               "unblockingPin",
                               "soPin",
                               "disable-allowed",
                               "integrity-protected",
                               "confidentiality-protected",
                               "exchangeRefData"};
inline const Names pinTypes = {"bcd", "ascii-numeric", "utf8", "half-nibble-bcd", "iso9564-1"};

} // namespace p15tool

#endif
