#ifndef HOST_LOADER_PLUGINLOADER_HPP
#define HOST_LOADER_PLUGINLOADER_HPP

#include "app/IApplicationPlugin.hpp"
#include "app/plugin/IConfigurationSource.hpp"
#include "app/plugin/PluginDescriptor.hpp"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace app {
class IApplication;
}

namespace host {

// Loads an application plugin library the way every host does: dlopen,
// QueryPlugin fills the descriptor, create, configure with `source`; the
// destructor hands
// the plugin back to the descriptor's destroy. The library stays mapped
// after that, because applications the plugin made may outlive the loader.
// A missing library or symbol, or a plugin that cannot be created, is a
// std::runtime_error naming the library.
class PluginLoader {
public:
    PluginLoader(const std::string& libraryPath, const plugin::IConfigurationSource& source);
    ~PluginLoader();
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    std::vector<boost::shared_ptr<app::IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const card::IChannel& channel) const;
    std::vector<boost::shared_ptr<app::IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const boost::shared_ptr<const card::IApplet>& applet,
                    const card::IChannel& channel) const;

    const plugin::PluginDescriptor& descriptor() const { return descriptor_; }
    app::IApplicationPlugin& plugin() const { return *applicationPlugin_; }

private:
    void load(const std::string& libraryPath);
    void release();

    void* library_ = nullptr;
    plugin::PluginDescriptor descriptor_{};
    plugin::IPlugin* plugin_ = nullptr;
    app::IApplicationPlugin* applicationPlugin_ = nullptr;
};

} // namespace host

#endif
