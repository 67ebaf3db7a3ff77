#ifndef APP_PKCS15_FS_PUKDF_HPP
#define APP_PKCS15_FS_PUKDF_HPP

#include "app/pkcs15/fs/DirectoryFile.hpp"
#include "card/service/KeyRef.hpp"

namespace card {
namespace service {
class IFileAccessService;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace fs {

// EF(PuKDF): the public keys of the application.
class PuKDF : public DirectoryFile<oss::PublicKeyType> {
public:
    explicit PuKDF(const boost::weak_ptr<ODF>& odf)
        : DirectoryFile(odf, P15File::PuKDF) {}
    const char* name() const override { return "EF(PuKDF)"; }

    // A key reference no public key of the file uses yet, for a key of
    // `modulusBits` (1024, 1536 or 2048).
    card::service::KeyRef getFreeKeyReference(const card::IChannel& channel,
                                              const card::service::IFileAccessService& fileAccess,
                                              unsigned short modulusBits) const;
    // Card references of the RSA keys listed.
    std::vector<card::service::KeyRef> keyRefs(const card::IChannel& channel) const;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
