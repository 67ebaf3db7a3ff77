#ifndef APP_PLUGIN_IPLUGIN_HPP
#define APP_PLUGIN_IPLUGIN_HPP

#include "mw/Visibility.hpp"

namespace plugin {

class IConfigurationSource;

// What every plugin offers its host. The host creates and destroys plugins
// only through the functions of the plugin's descriptor.
class MW_EXPORT_TYPE IPlugin {
public:
    virtual ~IPlugin() = default;
    // Takes the plugin's configuration from the host; may be called again.
    virtual void configure(const IConfigurationSource& source) = 0;
    // Notifications of reader and card events; plugins may ignore them.
    virtual void readersChanged() = 0;
    virtual void cardInserted() = 0;
    virtual void cardRemoved() = 0;
};

} // namespace plugin

#endif
