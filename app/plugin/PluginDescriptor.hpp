#ifndef APP_PLUGIN_PLUGINDESCRIPTOR_HPP
#define APP_PLUGIN_PLUGINDESCRIPTOR_HPP

#include "mw/Visibility.hpp"

#include <cstdint>

namespace plugin {

class IPlugin;

// Filled by a plugin library's QueryPlugin; owned by the host.
struct PluginDescriptor {
    // Reserved for the host (an interface version and flags); always zero.
    std::uint32_t version;
    std::uint32_t flags;
    // A new plugin object, or null when memory is exhausted.
    IPlugin* (*create)();
    // Releases a plugin from create; null is ignored.
    void (*destroy)(IPlugin* plugin);
};

// The one function a plugin library exports, looked up by this name.
using QueryPluginFunction = void (*)(PluginDescriptor* descriptor);
inline constexpr const char* queryPluginSymbol = "QueryPlugin";

} // namespace plugin

extern "C" MW_EXPORT_FUNCTION void QueryPlugin(plugin::PluginDescriptor* descriptor);

#endif
