#ifndef APP_OBJECT_ICARDOBJECT_HPP
#define APP_OBJECT_ICARDOBJECT_HPP

#include "mw/Visibility.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <string>

namespace app {
namespace object {

// An object of a card application, as the host sees it.
class MW_EXPORT_TYPE ICardObject {
public:
    enum ObjectClass : std::uint32_t {
        AuthenticationObject,
        PrivateKeyObject,
        PublicKeyObject,
        SecretKeyObject,
        CertificateObject,
        DataObject,
        ApplicationInfoObject
    };

    virtual ~ICardObject() = default;
    virtual ObjectClass getObjectClass() const = 0;
    virtual void setLabel(const std::string& label) = 0;
    virtual const boost::optional<std::string>& getLabel() const = 0;
    // Common object flags: 0x02 private, 0x01 modifiable.
    virtual void setFlags(std::uint8_t flags) = 0;
    virtual const boost::optional<std::uint8_t>& getFlags() const = 0;
};

} // namespace object
} // namespace app

#endif
