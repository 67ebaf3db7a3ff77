#include "app/pkcs15/P15ApplicationPlugin.hpp"
#include "app/plugin/PluginDescriptor.hpp"

// The library's only export: tells the host how to create and destroy the
// PKCS#15 application plugin.
extern "C" void QueryPlugin(plugin::PluginDescriptor* descriptor) {
    descriptor->version = 0;
    descriptor->flags = 0;
    descriptor->create = &app::pkcs15::P15ApplicationPlugin::create;
    descriptor->destroy = &app::pkcs15::P15ApplicationPlugin::destroy;
}
