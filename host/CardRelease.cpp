#include "host/CardRelease.hpp"

#include <cstdlib>
#include <cstring>

namespace host {

OnRelease onReleaseFromEnvironment() {
    const char* keep = std::getenv("P15_KEEP_LOGIN");
    return keep && std::strcmp(keep, "1") == 0 ? OnRelease::KeepLogin : OnRelease::LogOut;
}

} // namespace host
