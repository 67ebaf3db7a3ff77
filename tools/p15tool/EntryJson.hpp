#ifndef TOOLS_P15TOOL_ENTRYJSON_HPP
#define TOOLS_P15TOOL_ENTRYJSON_HPP

#include "app/pkcs15/oss/Asn1Types.hpp"
#include "tools/p15tool/Output.hpp"

#include <functional>
#include <string>

namespace p15tool {

namespace oss = app::pkcs15::oss;

// Decoded directory-file entries as the JSON documented in docs/p15tool.md.
// Text is valid UTF-8, identifiers hex (with a text twin when printable),
// flag words lists of flag names. An alternative this system does not
// support is {"type": ..., "supported": false, "size": ...} with what its
// common attributes say, when they can be read.
Json entryJson(const oss::PKCS15Objects& entry);
Json entryJson(const oss::PrivateKeyType& entry);
Json entryJson(const oss::PublicKeyType& entry);
Json entryJson(const oss::CertificateType& entry);
Json entryJson(const oss::DataType& entry);
Json entryJson(const oss::AuthenticationType& entry);
Json entryJson(const oss::TokenInfo& entry);
Json entryJson(const oss::DIRRecord& entry);

// What a PIN's authId is called ("User PIN"); empty for none.
using PinNamer = std::function<std::string(const oss::Bytes& authId)>;
// Access rules as `decode` and `list` show them, every mode and condition
// as the entry has it: the modes by name ("bit N" beyond ISO/IEC 7816-15's),
// the condition in words, each authId followed by its PIN's name when
// `pinName` gives one.
Json accessRulesJson(const std::vector<oss::AccessControlRule>& rules, const PinNamer& pinName);

} // namespace p15tool

#endif
