// A plugin library built only for tests, with the compile and link settings
// of the real plugin. Its operations throw card exceptions from inside the
// library so that the host side can check it catches them by type.
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
    void readersChanged() override {
        CARD_THROW(card::InvalidDataException() << card::ErrorText("malformed card data"));
    }
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
