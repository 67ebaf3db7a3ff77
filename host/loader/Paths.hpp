#ifndef HOST_LOADER_PATHS_HPP
#define HOST_LOADER_PATHS_HPP

#include <string>

// Where a host finds its files: the plugin beside it, the user's own card.
namespace host::paths {

// The directory part of `path`; "." when it has none.
std::string directoryOf(const std::string& path);
// `path` with links and relative parts resolved; `path` itself when it
// cannot be resolved.
std::string realPath(const std::string& path);
bool fileExists(const std::string& path);
// The user's own virtual card: $XDG_DATA_HOME/p15kit/card.json, or
// ~/.local/share/p15kit/card.json when XDG_DATA_HOME is unset, empty or
// relative; empty when the user has no home directory.
std::string userCardImage();

} // namespace host::paths

#endif
