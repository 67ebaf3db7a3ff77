#include "host/loader/Paths.hpp"

#include <climits>
#include <cstdlib>
#include <sys/stat.h>

namespace host::paths {

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string realPath(const std::string& path) {
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? resolved : path;
}

bool fileExists(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

std::string userCardImage() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    // The XDG rule: a relative path is invalid and ignored.
    if (dataHome && *dataHome == '/') {
        return std::string(dataHome) + "/p15kit/card.json";
    }
    const char* home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.local/share/p15kit/card.json" : std::string();
}

} // namespace host::paths
