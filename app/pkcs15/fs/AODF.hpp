#ifndef APP_PKCS15_FS_AODF_HPP
#define APP_PKCS15_FS_AODF_HPP

#include "app/pkcs15/fs/DirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <vector>

namespace app {
namespace pkcs15 {

namespace object {
class P15Pin;
}

namespace fs {

// EF(AODF): the authentication objects (PINs) of the application.
class AODF : public DirectoryFile<oss::AuthenticationType>,
             public boost::enable_shared_from_this<AODF> {
public:
    explicit AODF(const boost::weak_ptr<ODF>& odf)
        : DirectoryFile(odf, P15File::AODF) {}
    ~AODF() override;
    const char* name() const override { return "EF(AODF)"; }

    // The PINs of the file, in file order, made when first asked for and
    // again after the file changed. Entries of other kinds (biometric
    // templates, authentication keys) are not listed; they stay in the file.
    const std::vector<boost::shared_ptr<object::P15Pin>>& pins(const card::IChannel& channel) const;

protected:
    void forgetDecoded() const override;

private:
    mutable std::vector<boost::shared_ptr<object::P15Pin>> pins_;
    mutable bool pinsMade_ = false;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
