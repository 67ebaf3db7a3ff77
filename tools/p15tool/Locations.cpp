#include "tools/p15tool/Locations.hpp"

#include "tools/p15tool/ToolError.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace p15tool {

namespace {

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string realPath(const std::string& path) {
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? resolved : path;
}

std::string executableDirectory() {
    return directoryOf(realPath("/proc/self/exe"));
}

} // namespace

std::string defaultCardImage() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && *dataHome) {
        return std::string(dataHome) + "/p15kit/card.json";
    }
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
        throw ToolError(ExitCode::usage,
                        "no home directory for the default card image; name one with --card IMAGE");
    }
    return std::string(home) + "/.local/share/p15kit/card.json";
}

std::string pluginPath() {
    const std::string directory = executableDirectory();
    if (directory == realPath(P15TOOL_BUILD_DIR)) {
        return P15TOOL_BUILD_PLUGIN;
    }
    return directory + "/" + P15TOOL_PLUGIN_FROM_BINDIR;
}

bool fileExists(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
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
