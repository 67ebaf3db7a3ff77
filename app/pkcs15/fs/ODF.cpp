#include "app/pkcs15/fs/ODF.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/fs/TokenInfo.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "card/service/IFileAccessService.hpp"

#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {
namespace fs {

namespace {

const mw::ByteBuffer odfFileId{0x50, 0x31};

P15File::FileId directoryOf(const oss::PKCS15Objects& entry) {
    switch (entry.choice) {
    case oss::PKCS15Objects::privateKeys:
        return P15File::PrKDF;
    case oss::PKCS15Objects::publicKeys:
        return P15File::PuKDF;
    case oss::PKCS15Objects::certificates:
        return P15File::CDF;
    case oss::PKCS15Objects::dataObjects:
        return P15File::DODF;
    case oss::PKCS15Objects::authObjects:
        return P15File::AODF;
    default:
        APP_THROW(ApplicationException, "EF(ODF): unknown file referenced");
    }
}

} // namespace

ODF::ODF(const boost::weak_ptr<const P15Application>& application)
    : application_(application) {}

ODF::~ODF() = default;

boost::shared_ptr<const P15Application> ODF::application() const {
    boost::shared_ptr<const P15Application> owner = application_.lock();
    if (!owner) {
        APP_THROW(ApplicationException, "failed to get shared ptr from weak ptr");
    }
    return owner;
}

// EF(ODF) is a run of PKCS15Objects values up to the end of the data or the
// padding; an entry given as objects instead of a path is passed over.
void ODF::readFromCard(const card::IChannel& channel,
                       const card::service::IFileAccessService& fileAccess) {
    fileAccess.select(channel, odfFileId);
    const mw::ByteBuffer content = fileAccess.read(channel, 0, 0);
    for (mw::ByteBuffer& slot : fileIds_) {
        slot.clear();
    }
    std::size_t offset = 0;
    while (offset < content.size() && !P15File::isPadding(content.get(offset))) {
        oss::PKCS15Objects entry;
        try {
            offset += oss::decode(content.data() + offset, content.size() - offset, entry);
        } catch (InvalidDataException& error) {
            error << ErrorDetail("EF(ODF) " + pathText(odfFileId));
            throw;
        }
        const P15File::FileId kind = directoryOf(entry);
        if (entry.value.choice == oss::PathOrObjects::path) {
            fileIds_[kind] = mw::ByteBuffer(entry.value.pathValue.path);
        }
    }
    mustRead_ = false;
}

mw::ByteBuffer ODF::getFileId(const card::IChannel& channel,
                              const card::service::IFileAccessService& fileAccess,
                              P15File::FileId kind) {
    if (kind < 0 || kind >= FileIdCount) {
        APP_THROW(ApplicationException, "unknown PKCS#15 file type parameter");
    }
    if (mustRead_) {
        readFromCard(channel, fileAccess);
    }
    return fileIds_[kind];
}

// A directory file reaches the card only through the application, so none
// is handed out once the application is gone.
template <class File>
const boost::shared_ptr<File>& ODF::directoryFile(boost::shared_ptr<File>& slot) const {
    application();
    if (!slot) {
        slot = boost::make_shared<File>(
            boost::weak_ptr<ODF>(boost::const_pointer_cast<ODF>(shared_from_this())));
    }
    return slot;
}

const boost::shared_ptr<AODF>& ODF::getAODF() const {
    return directoryFile(aodf_);
}
const boost::shared_ptr<PrKDF>& ODF::getPrKDF() const {
    return directoryFile(prkdf_);
}
const boost::shared_ptr<PuKDF>& ODF::getPuKDF() const {
    return directoryFile(pukdf_);
}
const boost::shared_ptr<CDF>& ODF::getCDF() const {
    return directoryFile(cdf_);
}
const boost::shared_ptr<DODF>& ODF::getDODF() const {
    return directoryFile(dodf_);
}
const boost::shared_ptr<TokenInfo>& ODF::getTokenInfo() const {
    return directoryFile(tokenInfo_);
}

mw::ByteBuffer ODF::getFreeFileId(AppObjectType type) const {
    return application()->getFreeFileId(type);
}

card::service::KeyRef ODF::getFreeKeyReference(AppObjectType type) const {
    return application()->getFreeKeyReference(type);
}

mw::ByteBuffer ODF::updateEncodedAttributes(const P15File* file, const mw::ByteBuffer& oldEncoding,
                                            const mw::ByteBuffer& newEncoding) const {
    return application()->updateEncodedAttributes(file, oldEncoding, newEncoding);
}

// EF(ODF) is read again too: whatever made a directory file stale may have
// moved it.
void ODF::clearContent(const P15File* file) const {
    const boost::shared_ptr<const P15Application> owner = application();
    mustRead_ = true;
    owner->clearContent(file);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
