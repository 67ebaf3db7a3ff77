// A plugin library built like the real one whose configure throws a card exception from inside.
#include "app/plugin/IPlugin.hpp"
#include "app/plugin/PluginDescriptor.hpp"
#include "card/CardException.hpp"

#include <new>

namespace {

class ThrowingPlugin : public plugin::IPlugin {
public:
    void configure(const plugin::IConfigurationSource&) override {
        CARD_THROW(card::CardException() << card::Command("Select") << card::StatusCode(0x6A82));
    }
    void readersChanged() override {}
    void cardInserted() override {}
    void cardRemoved() override {}
};

plugin::IPlugin* create() {
    return new (std::nothrow) ThrowingPlugin;
}
void destroy(plugin::IPlugin* plugin) {
    delete plugin;
}

} // namespace

extern "C" void QueryPlugin(plugin::PluginDescriptor* descriptor) {
    *descriptor = plugin::PluginDescriptor{0, 0, &create, &destroy};
}
