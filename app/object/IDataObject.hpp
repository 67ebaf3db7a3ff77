#ifndef APP_OBJECT_IDATAOBJECT_HPP
#define APP_OBJECT_IDATAOBJECT_HPP

#include "app/object/ICardObject.hpp"

#include <cstdint>

namespace app {
namespace object {

// An application's data stored on the card.
class MW_EXPORT_TYPE IDataObject : public virtual ICardObject {
public:
    enum DataObjectType : std::uint32_t { OpaqueDataObject, ExternalDataObject, OidDataObject };
};

} // namespace object
} // namespace app

#endif
