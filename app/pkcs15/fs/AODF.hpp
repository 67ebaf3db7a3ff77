#ifndef APP_PKCS15_FS_AODF_HPP
#define APP_PKCS15_FS_AODF_HPP

#include "app/pkcs15/fs/DirectoryFile.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

// EF(AODF): the authentication objects (PINs) of the application.
class AODF : public DirectoryFile<oss::AuthenticationType> {
public:
    explicit AODF(const boost::weak_ptr<ODF>& odf)
        : DirectoryFile(odf, P15File::AODF) {}
    const char* name() const override { return "EF(AODF)"; }
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
