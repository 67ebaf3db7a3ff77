#ifndef APP_IAPPLICATIONPLUGIN_HPP
#define APP_IAPPLICATIONPLUGIN_HPP

#include "app/plugin/IPlugin.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <vector>

namespace card {
class ICard;
class IApplet;
class IChannel;
} // namespace card

namespace app {

class IApplication;

// A plugin that recognises card applications on a card the host connected.
class MW_EXPORT_TYPE IApplicationPlugin : public plugin::IPlugin {
public:
    // The applications found through the given applet.
    virtual std::vector<boost::shared_ptr<IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const boost::shared_ptr<const card::IApplet>& applet,
                    const card::IChannel& channel) const = 0;
    // The applications found on the card itself.
    virtual std::vector<boost::shared_ptr<IApplication>>
    getApplications(const boost::shared_ptr<const card::ICard>& card,
                    const card::IChannel& channel) const = 0;
};

} // namespace app

#endif
