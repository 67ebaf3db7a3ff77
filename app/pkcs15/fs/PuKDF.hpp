#ifndef APP_PKCS15_FS_PUKDF_HPP
#define APP_PKCS15_FS_PUKDF_HPP

#include "app/pkcs15/fs/KeyDirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>

namespace app {
namespace pkcs15 {
namespace object {
class P15RsaPublicKey;
}

namespace fs {

// EF(PuKDF): the public keys of the application.
class PuKDF : public KeyDirectoryFile<oss::PublicKeyType>,
              public boost::enable_shared_from_this<PuKDF> {
public:
    explicit PuKDF(const boost::weak_ptr<ODF>& odf)
        : KeyDirectoryFile(odf, P15File::PuKDF) {}
    ~PuKDF() override;
    const char* name() const override { return "EF(PuKDF)"; }

    // The RSA keys of the file, in file order; see KeyDirectoryFile::rsaKeys.
    const std::vector<boost::shared_ptr<object::P15RsaPublicKey>>&
    publicKeys(const card::IChannel& channel) const;

protected:
    bool holdsPrivateKeys() const override { return false; }
    const char* exhaustedText() const override { return "maximum number of public keys reached"; }
    bool rsaKeyRef(const oss::PublicKeyType& key, card::service::KeyRef& ref) const override;

private:
    mutable std::vector<boost::shared_ptr<object::P15RsaPublicKey>> keys_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
