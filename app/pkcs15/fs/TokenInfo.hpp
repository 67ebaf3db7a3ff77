#ifndef APP_PKCS15_FS_TOKENINFO_HPP
#define APP_PKCS15_FS_TOKENINFO_HPP

#include "app/pkcs15/fs/DirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <vector>

namespace app {
namespace pkcs15 {

namespace object {
class P15ApplicationInfo;
}

namespace fs {

// EF(TokenInfo): what the card says about the application, one TokenInfo
// value. Read when first needed like the directory files; written through
// the application, which rewrites only the bytes that changed.
class TokenInfo : public DirectoryFile<oss::TokenInfo>,
                  public boost::enable_shared_from_this<TokenInfo> {
public:
    explicit TokenInfo(const boost::weak_ptr<ODF>& odf)
        : DirectoryFile(odf, P15File::TokenInfo) {}
    ~TokenInfo() override;
    const char* name() const override { return "EF(TokenInfo)"; }

    // The application info of the file; a new one, not yet on the card, when
    // the file holds no TokenInfo.
    const boost::shared_ptr<object::P15ApplicationInfo>&
    applicationInfo(const card::IChannel& channel) const;

    // Replaces the TokenInfo `oldEncoding` (empty when the file holds none)
    // by `newEncoding`. The serial number is the token's identity, which
    // hosts keep with what they know of a card: the one the file holds is
    // kept, and an encoding with another one is refused ("the serial number
    // of a token cannot be changed") before anything is sent. A file without
    // one takes `serialNumber`.
    void write(const card::IChannel& channel, const card::service::IFileAccessService& fileAccess,
               const mw::ByteBuffer& serialNumber, const mw::ByteBuffer& oldEncoding,
               const mw::ByteBuffer& newEncoding) const;

private:
    mutable std::vector<boost::shared_ptr<object::P15ApplicationInfo>> made_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
