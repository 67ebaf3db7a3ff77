#include "app/pkcs15/P15ApplicationPlugin.hpp"

#include "app/plugin/IConfigurationSource.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <new>

namespace app::pkcs15 {

P15ApplicationPlugin::P15ApplicationPlugin()
    : namePattern_("PKCS15") {}

P15ApplicationPlugin::~P15ApplicationPlugin() = default;

plugin::IPlugin* P15ApplicationPlugin::create() noexcept {
    try {
        return new (std::nothrow) P15ApplicationPlugin();
    } catch (...) {
        // Compiling the name pattern allocates too; the host is told about
        // exhausted memory by a null plugin, never by an exception.
        return nullptr;
    }
}

void P15ApplicationPlugin::destroy(plugin::IPlugin* plugin) noexcept {
    delete plugin;
}

void P15ApplicationPlugin::configure(const plugin::IConfigurationSource& source) {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    boost::optional<std::string> text = source.readFile("plugin.conf");
    log.addParamOut("plugin.conf", static_cast<bool>(text));
    if (text) {
        configuration_ = std::move(*text);
    }
}

// The host's reader and card events need no action: every application the
// plugin hands out is independent of the plugin afterwards.
void P15ApplicationPlugin::readersChanged() {}
void P15ApplicationPlugin::cardInserted() {}
void P15ApplicationPlugin::cardRemoved() {}

} // namespace app::pkcs15
