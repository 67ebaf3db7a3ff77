#ifndef APP_PKCS15_P15APPLICATIONPLUGIN_HPP
#define APP_PKCS15_P15APPLICATIONPLUGIN_HPP

#include "app/IApplicationPlugin.hpp"

#include <boost/regex.hpp>
#include <string>

namespace app::pkcs15 {

// The plugin object behind QueryPlugin: hands the host PKCS#15 applications
// for its cards, each carrying the configuration text "plugin.conf" as it
// stood when the application was created.
class P15ApplicationPlugin : public IApplicationPlugin {
public:
    P15ApplicationPlugin();
    ~P15ApplicationPlugin() override;

    // The descriptor's create and destroy: create returns null instead of
    // throwing, destroy ignores null.
    static plugin::IPlugin* create() noexcept;
    static void destroy(plugin::IPlugin* plugin) noexcept;

    // Takes "plugin.conf" from the host; without one the text stays as it was.
    void configure(const plugin::IConfigurationSource& source) override;
    void readersChanged() override;
    void cardInserted() override;
    void cardRemoved() override;

    std::vector<boost::shared_ptr<IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const boost::shared_ptr<const card::IApplet>& applet,
                    const card::IChannel& channel) const override;
    std::vector<boost::shared_ptr<IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const card::IChannel& channel) const override;

    // The name pattern of the applications served ("PKCS15"), for the host.
    const boost::regex& namePattern() const { return namePattern_; }
    // The text of "plugin.conf", empty until a configuration supplied one.
    const std::string& configuration() const { return configuration_; }

private:
    boost::regex namePattern_;
    std::string configuration_;
};

} // namespace app::pkcs15

#endif
