// Loads libp15app.so as a host would, through the host's plugin loader:
// dlopen, QueryPlugin, create, configure with a small "plugin.conf",
// destroy. Usage: p15-plugin-demo [plugin path]
#include "host/loader/PluginLoader.hpp"

#include <boost/core/demangle.hpp>
#include <cstdio>
#include <exception>
#include <typeinfo>

namespace {

const char* const demoConfiguration = "[WaitingTime]\n"
                                      "Reselect = 1000\n"
                                      "PinInfo = 1000\n";

// The host's configuration store: holds only "plugin.conf".
class DemoConfiguration : public plugin::IConfigurationSource {
public:
    boost::optional<std::string> readFile(const std::string& fileName) const override {
        std::printf("  plugin asked for \"%s\"\n", fileName.c_str());
        if (fileName != "plugin.conf") {
            return boost::none;
        }
        return std::string(demoConfiguration);
    }
};

} // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : P15APP_PATH;
    std::printf("load, create and configure: %s\n", path);
    try {
        const host::PluginLoader loader(path, DemoConfiguration());
        std::printf("QueryPlugin: descriptor words %u %u\n", loader.descriptor().version,
                    loader.descriptor().flags);
        std::printf("plugin: %s\n", boost::core::demangle(typeid(loader.plugin()).name()).c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "p15-plugin-demo: %s\n", e.what());
        return 1;
    }
    std::printf("destroy: plugin released\n");
    return 0;
}
