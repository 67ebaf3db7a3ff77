#ifndef TOOLS_P15TOOL_ENTRYJSON_HPP
#define TOOLS_P15TOOL_ENTRYJSON_HPP

#include "app/pkcs15/oss/Asn1Types.hpp"
#include "tools/p15tool/Output.hpp"

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

} // namespace p15tool

#endif
