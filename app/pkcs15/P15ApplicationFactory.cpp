// The application as the host's object factory. New objects are written to
// the card by the repository's writeCardObject.
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {

using namespace app::object;

boost::shared_ptr<ICertificate>
P15Application::createCertificate(ICertificate::CertificateType type,
                                  const AccessControlRules& rules) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != ICertificate::X509Certificate) {
        APP_THROW(ApplicationException, "unsupported cert type");
    }
    auto certificate = boost::make_shared<object::P15X509Certificate>(
        boost::weak_ptr<const fs::CDF>(getODF()->getCDF()));
    if (!rules.empty()) {
        certificate->setAccessControlRules(rules);
    }
    return certificate;
}

boost::shared_ptr<IPublicKey>
P15Application::createPublicKey(IPublicKey::PublicKeyType type,
                                const AccessControlRules& rules) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != IPublicKey::RsaPublicKey) {
        APP_THROW(ApplicationException, "unsupported key type");
    }
    auto key = boost::make_shared<object::P15RsaPublicKey>(
        boost::weak_ptr<const fs::PuKDF>(getODF()->getPuKDF()));
    if (!rules.empty()) {
        key->setAccessControlRules(rules);
    }
    return key;
}

boost::shared_ptr<IPrivateKey>
P15Application::createPrivateKey(IPrivateKey::PrivateKeyType type,
                                 const AccessControlRules& rules) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != IPrivateKey::RsaPrivateKey) {
        APP_THROW(ApplicationException, "unsupported key type");
    }
    if (rules.empty()) {
        APP_THROW(ApplicationException, "access control rules are required but not set");
    }
    auto key = boost::make_shared<object::P15RsaPrivateKey>(
        boost::weak_ptr<const fs::PrKDF>(getODF()->getPrKDF()));
    key->setAccessControlRules(rules);
    return key;
}

boost::shared_ptr<ISecretKey>
P15Application::createSecretKey(ISecretKey::SecretKeyType /*type*/,
                                const AccessControlRules& /*rules*/) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    APP_THROW(OperationNotSupportedException, "creation of secret keys not supported");
}

boost::shared_ptr<IDataObject>
P15Application::createDataObject(IDataObject::DataObjectType type,
                                 const AccessControlRules& rules) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != IDataObject::OpaqueDataObject) {
        APP_THROW(ApplicationException, "unsupported do type");
    }
    auto dataObject = boost::make_shared<object::P15DataObject>(
        boost::weak_ptr<const fs::DODF>(getODF()->getDODF()));
    if (!rules.empty()) {
        dataObject->setAccessControlRules(rules);
    }
    return dataObject;
}

} // namespace pkcs15
} // namespace app
