#ifndef TOOLS_P15TOOL_LOCATIONS_HPP
#define TOOLS_P15TOOL_LOCATIONS_HPP

#include "host/loader/Paths.hpp"

#include <string>

namespace p15tool {

using host::paths::fileExists;

// The user's own virtual card: $XDG_DATA_HOME/p15kit/card.json, or
// ~/.local/share/p15kit/card.json when XDG_DATA_HOME is unset or relative.
std::string defaultCardImage();

// The plugin library: the one built beside the tool when the tool runs from
// the build tree, otherwise the installed one, found relative to the
// installed tool so that a staged (DESTDIR) installation works too.
std::string pluginPath();

// Creates the directory holding `path` and its parents, readable by the
// user only.
void createParentDirectories(const std::string& path);

} // namespace p15tool

#endif
