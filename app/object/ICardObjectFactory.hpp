#ifndef APP_OBJECT_ICARDOBJECTFACTORY_HPP
#define APP_OBJECT_ICARDOBJECTFACTORY_HPP

#include "app/IAccessControlled.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPrivateKey.hpp"
#include "app/object/IPublicKey.hpp"
#include "app/object/ISecretKey.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>

namespace app {
namespace object {

// Makes new objects of a card application. They are not on the card until
// the host fills them and stores them through the repository.
class MW_EXPORT_TYPE ICardObjectFactory {
public:
    virtual ~ICardObjectFactory() = default;
    virtual boost::shared_ptr<ICertificate>
    createCertificate(ICertificate::CertificateType type,
                      const AccessControlRules& rules) const = 0;
    virtual boost::shared_ptr<IPublicKey>
    createPublicKey(IPublicKey::PublicKeyType type, const AccessControlRules& rules) const = 0;
    virtual boost::shared_ptr<IPrivateKey>
    createPrivateKey(IPrivateKey::PrivateKeyType type, const AccessControlRules& rules) const = 0;
    virtual boost::shared_ptr<ISecretKey>
    createSecretKey(ISecretKey::SecretKeyType type, const AccessControlRules& rules) const = 0;
    virtual boost::shared_ptr<IDataObject>
    createDataObject(IDataObject::DataObjectType type, const AccessControlRules& rules) const = 0;
};

} // namespace object
} // namespace app

#endif
