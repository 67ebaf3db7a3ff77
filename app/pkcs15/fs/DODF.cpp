#include "app/pkcs15/fs/DODF.hpp"

#include "app/pkcs15/object/P15DataObject.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

DODF::~DODF() = default;

const std::vector<boost::shared_ptr<object::P15DataObject>>&
DODF::dataObjects(const card::IChannel& channel) const {
    return objectsOf(*this, channel, &object::P15DataObject::isListed, dataObjects_);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
