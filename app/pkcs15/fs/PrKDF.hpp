#ifndef APP_PKCS15_FS_PRKDF_HPP
#define APP_PKCS15_FS_PRKDF_HPP

#include "app/pkcs15/fs/KeyDirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>

namespace app {
namespace pkcs15 {
namespace object {
class P15RsaPrivateKey;
}

namespace fs {

// EF(PrKDF): the private keys of the application.
class PrKDF : public KeyDirectoryFile<oss::PrivateKeyType>,
              public boost::enable_shared_from_this<PrKDF> {
public:
    explicit PrKDF(const boost::weak_ptr<ODF>& odf)
        : KeyDirectoryFile(odf, P15File::PrKDF) {}
    ~PrKDF() override;
    const char* name() const override { return "EF(PrKDF)"; }

    // The RSA keys of the file, in file order; see KeyDirectoryFile::rsaKeys.
    const std::vector<boost::shared_ptr<object::P15RsaPrivateKey>>&
    privateKeys(const card::IChannel& channel) const;

protected:
    bool holdsPrivateKeys() const override { return true; }
    const char* exhaustedText() const override { return "maximum number of private keys reached"; }
    bool rsaKeyRef(const oss::PrivateKeyType& key, card::service::KeyRef& ref) const override;

private:
    mutable std::vector<boost::shared_ptr<object::P15RsaPrivateKey>> keys_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
