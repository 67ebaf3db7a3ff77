// A plugin library for the loader's tests: it records what the host did
// with it, readable through two extra C functions.
#include "app/IApplicationPlugin.hpp"
#include "app/plugin/IConfigurationSource.hpp"
#include "app/plugin/PluginDescriptor.hpp"

#include <new>
#include <string>

namespace {

std::string configuration = "(not configured)";
int livePlugins = 0;

class FakePlugin : public app::IApplicationPlugin {
public:
    FakePlugin() { ++livePlugins; }
    ~FakePlugin() override { --livePlugins; }

    void configure(const plugin::IConfigurationSource& source) override {
        const boost::optional<std::string> text = source.readFile("plugin.conf");
        configuration = text ? *text : "(none)";
    }
    void readersChanged() override {}
    void cardInserted() override {}
    void cardRemoved() override {}

    std::vector<boost::shared_ptr<app::IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>&,
                    const boost::shared_ptr<const card::IApplet>&,
                    const card::IChannel&) const override {
        return {};
    }
    std::vector<boost::shared_ptr<app::IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>&,
                    const card::IChannel&) const override {
        return {};
    }
};

plugin::IPlugin* create() {
    return new (std::nothrow) FakePlugin;
}
void destroy(plugin::IPlugin* plugin) {
    delete plugin;
}

} // namespace

extern "C" void QueryPlugin(plugin::PluginDescriptor* descriptor) {
    *descriptor = plugin::PluginDescriptor{0, 0, &create, &destroy};
}

extern "C" __attribute__((visibility("default"))) const char* fakePluginConfiguration() {
    return configuration.c_str();
}

extern "C" __attribute__((visibility("default"))) int fakePluginLiveCount() {
    return livePlugins;
}
