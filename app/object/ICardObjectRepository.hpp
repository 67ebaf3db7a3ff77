#ifndef APP_OBJECT_ICARDOBJECTREPOSITORY_HPP
#define APP_OBJECT_ICARDOBJECTREPOSITORY_HPP

#include "app/object/IApplicationInfo.hpp"
#include "app/object/IAuthenticationObject.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPrivateKey.hpp"
#include "app/object/IPublicKey.hpp"
#include "app/object/ISecretKey.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <vector>

namespace card {
class IChannel;
}

namespace app {
namespace object {

// Where a card application keeps its objects: lists them by kind, and reads,
// stores and deletes one.
class MW_EXPORT_TYPE ICardObjectRepository {
public:
    template <class T> using List = std::vector<boost::shared_ptr<T>>;

    virtual ~ICardObjectRepository() = default;
    virtual void readCardObject(const card::IChannel& channel, ICardObject& object) const = 0;
    virtual void writeCardObject(const card::IChannel& channel,
                                 const ICardObject& object) const = 0;
    virtual void deleteCardObject(const card::IChannel& channel,
                                  const ICardObject& object) const = 0;
    virtual List<IAuthenticationObject> getAuthObjects(const card::IChannel& channel) const = 0;
    virtual List<IPrivateKey> getPrivateKeys(const card::IChannel& channel) const = 0;
    virtual List<IPublicKey> getPublicKeys(const card::IChannel& channel) const = 0;
    virtual List<ICertificate> getCertificates(const card::IChannel& channel) const = 0;
    virtual List<IDataObject> getDataObjects(const card::IChannel& channel) const = 0;
    // The application's token information, to read and to change.
    virtual boost::shared_ptr<IApplicationInfo>
    getApplicationInfo(const card::IChannel& channel) const = 0;
    virtual List<ISecretKey> getSecretKeys(const card::IChannel& channel) const = 0;
};

} // namespace object
} // namespace app

#endif
