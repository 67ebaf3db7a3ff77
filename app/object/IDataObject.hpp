#ifndef APP_OBJECT_IDATAOBJECT_HPP
#define APP_OBJECT_IDATAOBJECT_HPP

#include "app/object/ICardObject.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <string>

namespace app {
namespace object {

// An application's data stored on the card: its attributes in the data
// object directory, its value in a file of its own.
class MW_EXPORT_TYPE IDataObject : public virtual ICardObject {
public:
    enum DataObjectType : std::uint32_t { OpaqueDataObject, ExternalDataObject, OidDataObject };

    // The application the data belongs to, by name and by object identifier
    // (the identifier's DER content octets).
    virtual const boost::optional<std::string>& getApplicationName() const = 0;
    virtual void setApplicationName(const std::string& name) = 0;
    virtual const boost::optional<mw::ByteBuffer>& getApplicationOid() const = 0;
    virtual void setApplicationOid(const mw::ByteBuffer& oid) = 0;
    // The data: empty until read from the card or set.
    virtual const mw::ByteBuffer& getValue() const = 0;
    virtual void setValue(const mw::ByteBuffer& value) = 0;
};

} // namespace object
} // namespace app

#endif
