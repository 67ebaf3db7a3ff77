// The application as the host's object factory. Until the object classes of
// a kind exist, a supported request ends in "not yet supported" after the
// checks that belong to the request itself. New objects are written to the
// card by the repository's writeCardObject.
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {

using namespace app::object;

boost::shared_ptr<ICertificate>
P15Application::createCertificate(ICertificate::CertificateType type,
                                  const AccessControlRules& /*rules*/) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != ICertificate::X509Certificate) {
        APP_THROW(ApplicationException, "unsupported cert type");
    }
    getODF();
    APP_THROW(OperationNotSupportedException, "creation of X.509 certificates not yet supported");
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
                                 const AccessControlRules& /*rules*/) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (type != IDataObject::OpaqueDataObject) {
        APP_THROW(ApplicationException, "unsupported do type");
    }
    getODF();
    APP_THROW(OperationNotSupportedException, "creation of data objects not yet supported");
}

} // namespace pkcs15
} // namespace app
