#ifndef TOOLS_P15TOOL_DIRECTORYFILE_HPP
#define TOOLS_P15TOOL_DIRECTORYFILE_HPP

#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Text.hpp"

#include <optional>
#include <string>

namespace p15tool {

// The files `decode` reads: the directory files of a PKCS#15 application,
// its token information and EF(DIR).
enum class DirectoryKind { odf, aodf, prkdf, pukdf, cdf, dodf, tokeninfo, dir };

const char* kindName(DirectoryKind kind);
std::optional<DirectoryKind> kindFromName(const std::string& name);
// The kind the first entry's tag shows, where it shows one: EF(ODF), token
// information and EF(DIR) open with tags of their own.
std::optional<DirectoryKind> kindFromContent(const Bytes& content);

// The bytes of a dump: binary as read from a card, or hex with "#" comment
// lines. A ToolError names what cannot be read.
Bytes readDump(const std::string& path);

// {"entries": [...], "padding": N}: every entry with its offset, up to the
// 00 or FF padding that fills the rest of the file. An entry that cannot be
// decoded is an app::InvalidDataException whose error data is its offset in
// the file.
Json decodeDirectoryFile(DirectoryKind kind, const Bytes& content);

} // namespace p15tool

#endif
