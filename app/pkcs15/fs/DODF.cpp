#include "app/pkcs15/fs/DODF.hpp"

#include "app/pkcs15/fs/Allocation.hpp"
#include "app/pkcs15/fs/ODF.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

mw::ByteBuffer DODF::getFreeFileId(const card::IChannel& channel,
                                   const card::service::IFileAccessService&,
                                   AppObjectType type) const {
    return freeValueFileId(*odf(), channel, type, "maximum number of data objects reached");
}

std::vector<mw::ByteBuffer> DODF::valueFileIds(const card::IChannel& channel) const {
    std::vector<mw::ByteBuffer> ids;
    for (const oss::DataType& object : values(channel)) {
        const oss::Path* path = object.choice == oss::DataType::opaqueDO
                                    ? indirectPath(object.opaqueDOValue.typeAttributes)
                                    : nullptr;
        if (path) {
            ids.emplace_back(path->path);
        }
    }
    return ids;
}

} // namespace fs
} // namespace pkcs15
} // namespace app
