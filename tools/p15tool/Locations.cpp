#include "tools/p15tool/Locations.hpp"

#include "tools/p15tool/ToolError.hpp"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace p15tool {

namespace {

using host::paths::directoryOf;
using host::paths::realPath;

std::string executableDirectory() {
    return directoryOf(realPath("/proc/self/exe"));
}

} // namespace

std::string defaultCardImage() {
    const std::string image = host::paths::userCardImage();
    if (image.empty()) {
        throw ToolError(ExitCode::usage,
                        "no home directory for the default card image; name one with --card IMAGE");
    }
    return image;
}

std::string pluginPath() {
    const std::string directory = executableDirectory();
    if (directory == realPath(P15TOOL_BUILD_DIR)) {
        return P15TOOL_BUILD_PLUGIN;
    }
    return directory + "/" + P15TOOL_PLUGIN_FROM_BINDIR;
}

void createParentDirectories(const std::string& path) {
    const std::string directory = directoryOf(path);
    if (directory == "." || directory.empty() || fileExists(directory)) {
        return;
    }
    createParentDirectories(directory);
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        throw ToolError(ExitCode::failure,
                        "cannot create the directory " + directory + ": " + std::strerror(errno));
    }
}

} // namespace p15tool
