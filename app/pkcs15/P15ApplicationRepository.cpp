// The application as the host's object repository.
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {

using object::AbstractP15Object;

namespace {

constexpr const char* notP15Object = "failed to cast to AbstractP15Object";

} // namespace

void P15Application::readCardObject(const card::IChannel& channel,
                                    app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    auto* p15 = dynamic_cast<AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->read(channel, *this);
}

void P15Application::writeCardObject(const card::IChannel& channel,
                                     const app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto* p15 = dynamic_cast<const AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->write(channel, *this);
}

void P15Application::deleteCardObject(const card::IChannel& channel,
                                      const app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto* p15 = dynamic_cast<const AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->remove(channel, *this);
}

P15Application::List<app::object::IAuthenticationObject>
P15Application::getAuthObjects(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& pins = getODF()->getAODF()->pins(channel);
    return {pins.begin(), pins.end()};
}

// Until a kind has its object class, a file that lists objects of that kind
// is refused rather than shown empty; entries of kinds the application never
// uses (EC keys, attribute certificates, ...) are passed over.
template <class Object, class File>
P15Application::List<Object>
P15Application::objectsOf(const card::IChannel& channel,
                          const boost::shared_ptr<File>& (fs::ODF::*file)() const,
                          const char* notYetSupported) const {
    const auto& values = ((*getODF()).*file)()->values(channel);
    const bool listsSupportedKind = std::any_of(
        values.begin(), values.end(), [](const auto& value) { return value.choice == 1; });
    if (listsSupportedKind) {
        APP_THROW(OperationNotSupportedException, notYetSupported);
    }
    return {};
}

P15Application::List<app::object::IPrivateKey>
P15Application::getPrivateKeys(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& keys = getODF()->getPrKDF()->privateKeys(channel);
    return {keys.begin(), keys.end()};
}

P15Application::List<app::object::IPublicKey>
P15Application::getPublicKeys(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& keys = getODF()->getPuKDF()->publicKeys(channel);
    return {keys.begin(), keys.end()};
}

P15Application::List<app::object::ICertificate>
P15Application::getCertificates(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return objectsOf<app::object::ICertificate>(channel, &fs::ODF::getCDF,
                                                "X.509 certificate objects not yet supported");
}

P15Application::List<app::object::IDataObject>
P15Application::getDataObjects(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return objectsOf<app::object::IDataObject>(channel, &fs::ODF::getDODF,
                                               "data objects not yet supported");
}

P15Application::List<app::object::ISecretKey>
P15Application::getSecretKeys(const card::IChannel& /*channel*/) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    APP_THROW(OperationNotSupportedException, "getSecretKeys not supported");
}

} // namespace pkcs15
} // namespace app
