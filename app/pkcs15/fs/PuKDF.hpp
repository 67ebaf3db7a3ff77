#ifndef APP_PKCS15_FS_PUKDF_HPP
#define APP_PKCS15_FS_PUKDF_HPP

#include "app/pkcs15/fs/KeyDirectoryFile.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

// EF(PuKDF): the public keys of the application.
class PuKDF : public KeyDirectoryFile<oss::PublicKeyType> {
public:
    explicit PuKDF(const boost::weak_ptr<ODF>& odf)
        : KeyDirectoryFile(odf, P15File::PuKDF) {}
    const char* name() const override { return "EF(PuKDF)"; }

protected:
    bool holdsPrivateKeys() const override { return false; }
    const char* exhaustedText() const override { return "maximum number of public keys reached"; }
    bool rsaKeyRef(const oss::PublicKeyType& key, card::service::KeyRef& ref) const override;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
