#ifndef APP_PKCS15_FS_DODF_HPP
#define APP_PKCS15_FS_DODF_HPP

#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/fs/DirectoryFile.hpp"

namespace card {
namespace service {
class IFileAccessService;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace fs {

// EF(DODF): the data objects of the application, whose values lie in files of their own.
class DODF : public DirectoryFile<oss::DataType> {
public:
    explicit DODF(const boost::weak_ptr<ODF>& odf)
        : DirectoryFile(odf, P15File::DODF) {}
    const char* name() const override { return "EF(DODF)"; }

    // A value file identifier that no certificate or data object uses yet.
    mw::ByteBuffer getFreeFileId(const card::IChannel& channel,
                                 const card::service::IFileAccessService& fileAccess,
                                 AppObjectType type) const;
    // Paths of the value files the entries point to.
    std::vector<mw::ByteBuffer> valueFileIds(const card::IChannel& channel) const;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
