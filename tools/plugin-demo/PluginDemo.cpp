// Loads libp15app.so as a host would: dlopen, QueryPlugin, create, configure
// with a small "plugin.conf", destroy. Usage: p15-plugin-demo [plugin path]
#include "app/IApplicationPlugin.hpp"
#include "app/plugin/IConfigurationSource.hpp"
#include "app/plugin/IPlugin.hpp"
#include "app/plugin/PluginDescriptor.hpp"

#include <boost/core/demangle.hpp>
#include <cstdio>
#include <dlfcn.h>
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

int fail(const char* step, const char* detail) {
    std::fprintf(stderr, "p15-plugin-demo: %s failed: %s\n", step, detail);
    return 1;
}

int runPlugin(const plugin::PluginDescriptor& descriptor) {
    plugin::IPlugin* created = descriptor.create();
    if (created == nullptr) {
        return fail("create", "the plugin returned no object (out of memory)");
    }
    std::printf("create: %s, an application plugin: %s\n",
                boost::core::demangle(typeid(*created).name()).c_str(),
                dynamic_cast<app::IApplicationPlugin*>(created) != nullptr ? "yes" : "no");
    try {
        std::printf("configure: handing over plugin.conf (%zu bytes)\n",
                    std::char_traits<char>::length(demoConfiguration));
        created->configure(DemoConfiguration());
    } catch (const std::exception& e) {
        descriptor.destroy(created);
        return fail("configure", e.what());
    }
    descriptor.destroy(created);
    std::printf("destroy: plugin released\n");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : P15APP_PATH;
    std::printf("load: %s\n", path);
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return fail("dlopen", dlerror());
    }
    auto query =
        reinterpret_cast<plugin::QueryPluginFunction>(dlsym(library, plugin::queryPluginSymbol));
    if (query == nullptr) {
        dlclose(library);
        return fail("QueryPlugin lookup", "the library does not export QueryPlugin");
    }
    plugin::PluginDescriptor descriptor{};
    query(&descriptor);
    std::printf("QueryPlugin: descriptor words %u %u, create and destroy %s\n", descriptor.version,
                descriptor.flags,
                descriptor.create != nullptr && descriptor.destroy != nullptr ? "set" : "missing");
    const int status = descriptor.create != nullptr && descriptor.destroy != nullptr
                           ? runPlugin(descriptor)
                           : fail("QueryPlugin", "the descriptor has no create or destroy");
    dlclose(library);
    return status;
}
