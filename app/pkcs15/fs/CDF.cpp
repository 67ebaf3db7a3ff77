#include "app/pkcs15/fs/CDF.hpp"

#include "app/pkcs15/fs/Allocation.hpp"
#include "app/pkcs15/fs/ODF.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

mw::ByteBuffer CDF::getFreeFileId(const card::IChannel& channel,
                                  const card::service::IFileAccessService&,
                                  AppObjectType type) const {
    return freeValueFileId(*odf(), channel, type, "maximum number of certificates reached");
}

std::vector<mw::ByteBuffer> CDF::valueFileIds(const card::IChannel& channel) const {
    std::vector<mw::ByteBuffer> ids;
    for (const oss::CertificateType& object : values(channel)) {
        const oss::Path* path = object.choice == oss::CertificateType::x509Certificate
                                    ? indirectPath(object.x509CertificateValue.typeAttributes.value)
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
