// Runs the plugin the way a host does: dlopen, QueryPlugin, create,
// configure with a small "plugin.conf", hand it a card, get the selected
// PKCS#15 application, destroy. The card is a freshly personalised virtual
// card in this process, or the card in a PC/SC reader.
// Usage: p15-plugin-demo [--reader NAME] [plugin path]
#include "app/IApplication.hpp"
#include "host/Channel.hpp"
#include "host/ErrorMessage.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "mw/Hex.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/core/demangle.hpp>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstring>
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

struct Card {
    boost::shared_ptr<host::Channel> channel;
    std::string description;
    vcard::VirtualCard* virtualCard = nullptr; // set for the in-process card
};

Card connect(const char* readerName) {
    Card card;
    if (readerName) {
        auto transport = host::connectReader(readerName, std::chrono::seconds(10));
        card.description = "card in PC/SC reader \"" + transport->reader() + "\"";
        card.channel = boost::make_shared<host::Channel>(std::move(transport));
    } else {
        auto transport =
            std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::personalised());
        card.virtualCard = &transport->virtualCard();
        card.description = "personalised virtual card";
        card.channel = boost::make_shared<host::Channel>(std::move(transport));
    }
    return card;
}

void showApplication(const host::PluginLoader& loader, const char* readerName) {
    const Card card = connect(readerName);
    auto cardObject = boost::make_shared<host::iso7816::Card>(card.channel);
    std::printf("card: %s, ATR %s\n", card.description.c_str(),
                mw::toHex(card.channel->transport(0).getAtr()).c_str());

    // Finding the applications is one card operation: no other program's
    // commands come between its SELECTs and READ BINARYs.
    const card::Transaction held(*card.channel);
    const auto applications = loader.getApplications(cardObject, *card.channel);
    for (const auto& application : applications) {
        std::printf("application: \"%s\", AID %s, selected\n", application->getLabel().c_str(),
                    mw::toHex(application->getAid()).c_str());
    }
    if (card.virtualCard) {
        std::printf("APDUs exchanged: %llu\n",
                    static_cast<unsigned long long>(
                        card.virtualCard->instrumentation().counters().commands));
    }
}

} // namespace

int main(int argc, char** argv) {
    const char* readerName = nullptr;
    int next = 1;
    if (argc > 2 && std::strcmp(argv[1], "--reader") == 0) {
        readerName = argv[2];
        next = 3;
    }
    const char* path = argc > next ? argv[next] : P15APP_PATH;
    std::printf("load, create and configure: %s\n", path);
    try {
        const host::PluginLoader loader(path, DemoConfiguration());
        std::printf("QueryPlugin: descriptor words %u %u\n", loader.descriptor().version,
                    loader.descriptor().flags);
        const app::IApplicationPlugin& plugin = loader.plugin();
        std::printf("plugin: %s\n", boost::core::demangle(typeid(plugin).name()).c_str());
        showApplication(loader, readerName);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "p15-plugin-demo: %s\n", host::errorMessage(e).c_str());
        return 1;
    }
    std::printf("destroy: plugin released\n");
    return 0;
}
