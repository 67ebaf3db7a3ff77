// Runs the plugin the way a host does, on the built-in virtual card:
// dlopen, QueryPlugin, create, configure with a small "plugin.conf", hand it
// a freshly personalised card, get the selected PKCS#15 application, destroy.
// Usage: p15-plugin-demo [plugin path]
#include "app/IApplication.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/core/demangle.hpp>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <exception>
#include <typeinfo>

namespace {

const char* const demoConfiguration = "[WaitingTime]\n"
                                      "Reselect = 1000\n"
                                      "PinInfo = 1000\n"
                                      "[Objects]\n"
                                      "wipeForce = false\n";

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

void showApplication(const host::PluginLoader& loader) {
    auto transport =
        std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::personalised());
    vcard::VirtualCard& card = transport->virtualCard();
    auto channel = boost::make_shared<host::Channel>(std::move(transport));
    auto cardObject = boost::make_shared<host::iso7816::Card>(channel);
    std::printf("card: personalised virtual card, ATR %s\n",
                mw::toHex(channel->transport(0).getAtr()).c_str());

    const auto applications = loader.getApplications(cardObject, *channel);
    for (const auto& application : applications) {
        std::printf("application: \"%s\", AID %s, selected\n", application->getLabel().c_str(),
                    mw::toHex(application->getAid()).c_str());
    }
    std::printf("APDUs exchanged: %llu\n",
                static_cast<unsigned long long>(card.instrumentation().counters().commands));
}

} // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : P15APP_PATH;
    std::printf("load, create and configure: %s\n", path);
    try {
        const host::PluginLoader loader(path, DemoConfiguration());
        std::printf("QueryPlugin: descriptor words %u %u\n", loader.descriptor().version,
                    loader.descriptor().flags);
        const app::IApplicationPlugin& plugin = loader.plugin();
        std::printf("plugin: %s\n", boost::core::demangle(typeid(plugin).name()).c_str());
        showApplication(loader);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "p15-plugin-demo: %s\n", e.what());
        return 1;
    }
    std::printf("destroy: plugin released\n");
    return 0;
}
