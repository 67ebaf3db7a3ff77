#include "host/iso7816/FileSystemService.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/SecurityAttributes.hpp"
#include "mw/Exception.hpp"

namespace host {
namespace iso7816 {

namespace {

using namespace card::service;

constexpr unsigned char keyIdMask = 0x7F;

Fcp keyFileFcp(const KeyRef& key, Fcp::Descriptor descriptor, unsigned char prefix) {
    Fcp fcp;
    fcp.descriptor = descriptor;
    fcp.size = key.modulusBits;
    fcp.fileId = keyFileId(key, prefix);
    return fcp;
}

} // namespace

// A reference without the top bit, or a longer path, is no key of the
// profile's: mapping it to 0E/0F would reach another key's file.
mw::ByteBuffer keyFileId(const KeyRef& key, unsigned char prefix) {
    if (key.fileId.size() == 2) {
        return key.fileId;
    }
    if (!key.fileId.empty()) {
        MW_THROW(mw::IllegalArgumentException, "a key file is named by its 2-byte identifier");
    }
    if ((key.keyReference & ~keyIdMask) == 0) {
        MW_THROW(mw::IllegalArgumentException,
                 "a key reference without its top bit names no key file");
    }
    return mw::ByteBuffer{prefix, static_cast<unsigned char>(key.keyReference & keyIdMask)};
}

FileSystemService::FileSystemService(boost::shared_ptr<FileSelection> selection)
    : selection_(std::move(selection)) {}

void FileSystemService::createFile(const card::IChannel& channel,
                                   const IFileCreationParams& params) const {
    const auto held = card::Transaction::join(channel);
    if (const auto* data = dynamic_cast<const DataObjectCreateParams*>(&params)) {
        if (data->size() > Fcp::maxEfSize) {
            MW_THROW(mw::IllegalArgumentException, "file size beyond FFFF bytes");
        }
        const mw::ByteBuffer path = selection_->absolutePath(data->path());
        Fcp fcp;
        fcp.descriptor = Fcp::TransparentEf;
        fcp.size = data->size();
        fcp.fileId = lastFileId(path);
        create(held, parentPath(path), std::move(fcp), params.accessConditions());
    } else if (const auto* key = dynamic_cast<const PrivateKeyCreateParams*>(&params)) {
        create(held, selection_->applicationDf(),
               keyFileFcp(key->keyRef(), Fcp::RsaPrivateKeyFile, privateKeyFilePrefix),
               params.accessConditions());
    } else if (const auto* key = dynamic_cast<const PublicKeyCreateParams*>(&params)) {
        create(held, selection_->applicationDf(),
               keyFileFcp(key->keyRef(), Fcp::RsaPublicKeyFile, publicKeyFilePrefix),
               params.accessConditions());
    } else {
        MW_THROW(mw::IllegalArgumentException, "unknown kind of file creation parameters");
    }
}

void FileSystemService::create(const card::Transaction& held, const mw::ByteBuffer& parentDf,
                               Fcp fcp, const AccessConditions& conditions) const {
    selection_->selectDf(held, parentDf);
    IsoCommand("Create File", 0xE0, 0x00, 0x00)
        .withData(fcp.encode(encodeSecurityAttributes(conditions)))
        .execute(held);
    selection_->created(parentDf, std::move(fcp));
}

void FileSystemService::deleteFile(const card::IChannel& channel,
                                   const mw::ByteBuffer& path) const {
    const mw::ByteBuffer absolute = selection_->absolutePath(path);
    if (absolute.empty()) {
        MW_THROW(mw::IllegalArgumentException, "the MF cannot be deleted");
    }
    const auto held = card::Transaction::join(channel);
    const mw::ByteBuffer parent = parentPath(absolute);
    selection_->selectDf(held, parent);
    IsoCommand("Delete File", 0xE4, 0x00, 0x00).withData(lastFileId(absolute)).execute(held);
    selection_->deleted(parent);
}

} // namespace iso7816
} // namespace host
