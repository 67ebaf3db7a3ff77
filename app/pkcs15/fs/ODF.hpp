#ifndef APP_PKCS15_FS_ODF_HPP
#define APP_PKCS15_FS_ODF_HPP

#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/fs/P15File.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <array>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

namespace app {
namespace pkcs15 {

class P15Application;

namespace fs {

class AODF;
class CDF;
class DODF;
class PrKDF;
class PuKDF;
class TokenInfo;

// EF(ODF): where the directory files of the application lie. Read once, on
// first need; the directory-file objects hang off it and reach the
// application through it.
class ODF : public boost::enable_shared_from_this<ODF> {
public:
    static constexpr int FileIdCount = 6;

    explicit ODF(const boost::weak_ptr<const P15Application>& application);
    ~ODF();

    void readFromCard(const card::IChannel& channel,
                      const card::service::IFileAccessService& fileAccess);
    // The file identifier (or path) of a directory file; empty when the card
    // lists none of that kind.
    mw::ByteBuffer getFileId(const card::IChannel& channel,
                             const card::service::IFileAccessService& fileAccess,
                             P15File::FileId kind);

    const boost::shared_ptr<AODF>& getAODF() const;
    const boost::shared_ptr<PrKDF>& getPrKDF() const;
    const boost::shared_ptr<PuKDF>& getPuKDF() const;
    const boost::shared_ptr<CDF>& getCDF() const;
    const boost::shared_ptr<DODF>& getDODF() const;
    // EF(TokenInfo), which EF(ODF) does not list (see P15File::getFileId).
    const boost::shared_ptr<TokenInfo>& getTokenInfo() const;

    mw::ByteBuffer getFreeFileId(AppObjectType type) const;
    card::service::KeyRef getFreeKeyReference(AppObjectType type) const;
    mw::ByteBuffer updateEncodedAttributes(const P15File* file, const mw::ByteBuffer& oldEncoding,
                                           const mw::ByteBuffer& newEncoding) const;
    void clearContent(const P15File* file) const;

    // The owning application; "failed to get shared ptr from weak ptr" when
    // it is gone.
    boost::shared_ptr<const P15Application> application() const;

private:
    template <class File>
    const boost::shared_ptr<File>& directoryFile(boost::shared_ptr<File>& slot) const;

    boost::weak_ptr<const P15Application> application_;
    mutable bool mustRead_ = true;
    std::array<mw::ByteBuffer, FileIdCount> fileIds_;
    mutable boost::shared_ptr<AODF> aodf_;
    mutable boost::shared_ptr<PrKDF> prkdf_;
    mutable boost::shared_ptr<PuKDF> pukdf_;
    mutable boost::shared_ptr<CDF> cdf_;
    mutable boost::shared_ptr<DODF> dodf_;
    mutable boost::shared_ptr<TokenInfo> tokenInfo_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
