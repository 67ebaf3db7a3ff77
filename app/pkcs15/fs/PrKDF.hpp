#ifndef APP_PKCS15_FS_PRKDF_HPP
#define APP_PKCS15_FS_PRKDF_HPP

#include "app/pkcs15/fs/KeyDirectoryFile.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

// EF(PrKDF): the private keys of the application.
class PrKDF : public KeyDirectoryFile<oss::PrivateKeyType> {
public:
    explicit PrKDF(const boost::weak_ptr<ODF>& odf)
        : KeyDirectoryFile(odf, P15File::PrKDF) {}
    const char* name() const override { return "EF(PrKDF)"; }

protected:
    bool holdsPrivateKeys() const override { return true; }
    const char* exhaustedText() const override { return "maximum number of private keys reached"; }
    bool rsaKeyRef(const oss::PrivateKeyType& key, card::service::KeyRef& ref) const override;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
