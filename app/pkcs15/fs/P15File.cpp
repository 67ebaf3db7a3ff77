#include "app/pkcs15/fs/P15File.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "card/service/IFileAccessService.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

P15File::P15File(const boost::weak_ptr<ODF>& odf, FileId kind)
    : odf_(odf)
    , kind_(kind) {}

P15File::~P15File() = default;

boost::shared_ptr<ODF> P15File::odf() const {
    boost::shared_ptr<ODF> owner = odf_.lock();
    if (!owner) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    return owner;
}

boost::shared_ptr<const P15Application> P15File::application() const {
    return odf()->application();
}

// EF(ODF) does not list EF(TokenInfo): it is 5032 in every application.
mw::ByteBuffer P15File::getFileId(const card::IChannel& channel,
                                  const card::service::IFileAccessService& fileAccess) const {
    if (kind_ == TokenInfo) {
        return mw::ByteBuffer{0x50, 0x32};
    }
    return odf()->getFileId(channel, fileAccess, kind_);
}

mw::ByteBuffer P15File::updateEncodedAttributes(const mw::ByteBuffer& oldEncoding,
                                                const mw::ByteBuffer& newEncoding) const {
    return odf()->updateEncodedAttributes(this, oldEncoding, newEncoding);
}

void P15File::clearContent() const {
    odf()->clearContent(this);
}

void P15File::ensureLoaded(const card::IChannel& channel) const {
    if (!mustRead_) {
        return;
    }
    const boost::shared_ptr<const P15Application> app = application();
    const card::service::IFileAccessService& fileAccess = *app->getFileAccessService();
    const mw::ByteBuffer fileId = getFileId(channel, fileAccess);
    mw::ByteBuffer content;
    if (!fileId.empty()) {
        fileAccess.select(channel, fileId);
        content = fileAccess.read(channel, 0, 0);
    }
    replaceContent(std::move(content));
}

const mw::ByteBuffer& P15File::content(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return content_;
}

const std::vector<P15File::Entry>& P15File::entries(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return entries_;
}

std::size_t P15File::contentLength(const card::IChannel& channel) const {
    ensureLoaded(channel);
    return contentLength_;
}

void P15File::replaceContent(mw::ByteBuffer content) const {
    dropContent();
    content_ = std::move(content);
    split();
    mustRead_ = false;
}

void P15File::dropContent() const {
    mustRead_ = true;
    content_.clear();
    entries_.clear();
    contentLength_ = 0;
    forgetDecoded();
}

void P15File::split() const {
    std::size_t offset = 0;
    while (offset < content_.size() && !isPadding(content_.data()[offset])) {
        const std::size_t used = decodeEntry(content_.data() + offset, content_.size() - offset);
        entries_.push_back({offset, content_.get(offset, used)});
        offset += used;
    }
    contentLength_ = offset;
}

} // namespace fs
} // namespace pkcs15
} // namespace app
