#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"

namespace app::pkcs15 {

std::vector<boost::shared_ptr<IApplication>>
P15ApplicationPlugin::getApplications(const boost::shared_ptr<const card::ICard>&,
                                      const boost::shared_ptr<const card::IApplet>&,
                                      const card::IChannel&) const {
    APP_THROW(OperationNotSupportedException, "getApplications not available yet");
}

std::vector<boost::shared_ptr<IApplication>>
P15ApplicationPlugin::getApplications(const boost::shared_ptr<const card::ICard>&,
                                      const card::IChannel&) const {
    APP_THROW(OperationNotSupportedException, "getApplications not available yet");
}

} // namespace app::pkcs15
