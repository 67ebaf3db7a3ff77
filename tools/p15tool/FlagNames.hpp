#ifndef TOOLS_P15TOOL_FLAGNAMES_HPP
#define TOOLS_P15TOOL_FLAGNAMES_HPP

#include "tools/p15tool/Output.hpp"

#include <initializer_list>
#include <string>

namespace p15tool {

// The names of PKCS#15 flag bits and enumerations, first bit first, as the
// JSON output spells them, shared by the decoder and the card commands.
using Names = std::initializer_list<const char*>;

inline const Names objectFlags = {"private", "modifiable"};
// ISO/IEC 7816-15 names the modes beyond the three of PKCS#15.
inline const Names accessModes = {"read",      "update",   "execute",   "delete",
                                  "attribute", "pso-cds",  "pso-verif", "pso-dec",
                                  "pso-enc",   "int-auth", "ext-auth"};
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
inline const Names keyUsages = {"encrypt", "decrypt",       "sign",   "signRecover",
                                "wrap",    "unwrap",        "verify", "verifyRecover",
                                "derive",  "nonRepudiation"};
inline const Names keyAccessFlags = {"sensitive", "extractable", "alwaysSensitive",
                                     "neverExtractable", "local"};
inline const Names pinTypes = {"bcd", "ascii-numeric", "utf8", "half-nibble-bcd", "iso9564-1"};

// The names of the bits set in a flag word of `bitCount` bits whose first
// bit is the highest; "bit N" for those without a name.
inline Json flagNames(unsigned value, unsigned bitCount, Names names) {
    Json list = Json::array();
    for (unsigned bit = 0; bit < bitCount; ++bit) {
        if (value & (1u << (bitCount - 1 - bit))) {
            list.push_back(bit < names.size() ? std::string(names.begin()[bit])
                                              : "bit " + std::to_string(bit));
        }
    }
    return list;
}

} // namespace p15tool

#endif
