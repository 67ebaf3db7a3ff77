#include "app/pkcs15/detail/Wipe.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "card/CardException.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/IFileAccessService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "mw/Hex.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <cstdio>

namespace app {
namespace pkcs15 {
namespace detail {

using card::service::KeyRef;

namespace {

// EF(ODF), EF(TokenInfo) and EF(DIR); the directory files come from EF(ODF).
const mw::ByteBuffer fixedStructuralFiles[] = {{0x50, 0x31}, {0x50, 0x32}, {0x2F, 0x00}};

// The command and status word of a card failure, or its text.
std::string describe(const card::CardException& failure) {
    const char* const* command = boost::get_error_info<card::Command>(failure);
    const unsigned short* sw = boost::get_error_info<card::StatusCode>(failure);
    const char* const* text = boost::get_error_info<card::ErrorText>(failure);
    std::string description = command ? *command : text ? *text : failure.what();
    if (sw) {
        char digits[6];
        std::snprintf(digits, sizeof digits, " %04X", *sw);
        description += digits;
    }
    return description;
}

// The last file identifier of a path: what the card names the file by.
mw::ByteBuffer lastFileId(const mw::ByteBuffer& path) {
    return path.size() <= 2 ? path : path.get(path.size() - 2, 2);
}

bool valueTargetOf(const oss::ObjectValue& value, mw::ByteBuffer& path) {
    switch (value.choice) {
    case oss::ObjectValue::direct:
    case oss::ObjectValue::directProtected:
        return true;
    case oss::ObjectValue::indirect:
        if (const oss::Path* where = fs::indirectPath(value)) {
            path = mw::ByteBuffer(where->path);
        }
        return true; // a URL names nothing on the card
    default:
        return false;
    }
}

} // namespace

Wipe::Wipe(const P15Application& application, const card::IChannel& channel)
    : application_(application)
    , channel_(channel) {}

void Wipe::run(bool forced) {
    const boost::shared_ptr<fs::ODF>& odf = application_.getODF();
    collectStructuralFiles();
    plan(*odf->getCDF());
    plan(*odf->getDODF());
    plan(*odf->getPrKDF());
    plan(*odf->getPuKDF());
    for (Directory& directory : directories_) {
        dropEntries(directory);
    }
    for (Directory& directory : directories_) {
        removeTargets(directory);
    }
    if (forced) {
        sweepValueFiles();
        sweepKeys();
    }
    for (Directory& directory : directories_) {
        restoreEntries(directory);
    }
    report();
}

bool Wipe::targetOf(const fs::CDF&, const oss::CertificateType& certificate, Target& target) {
    if (certificate.choice != oss::CertificateType::x509Certificate) {
        return false;
    }
    target.kind = Target::valueFile;
    return valueTargetOf(certificate.x509CertificateValue.typeAttributes.value, target.path);
}

bool Wipe::targetOf(const fs::DODF&, const oss::DataType& data, Target& target) {
    if (data.choice != oss::DataType::opaqueDO) {
        return false;
    }
    target.kind = Target::valueFile;
    return valueTargetOf(data.opaqueDOValue.typeAttributes, target.path);
}

template <class Key>
bool Wipe::targetOf(const fs::KeyDirectoryFile<Key>& file, const Key& key, Target& target) {
    target.kind = file.getKind() == fs::P15File::PrKDF ? Target::privateKey : Target::publicKey;
    return file.keyRefOf(key, target.key);
}

std::string Wipe::nameOf(const Target& target) {
    switch (target.kind) {
    case Target::valueFile:
        return "file " + mw::toHex(target.path);
    case Target::privateKey:
        return "private key " + mw::toHex(mw::ByteBuffer{target.key.keyReference});
    case Target::publicKey:
        return "public key " + mw::toHex(mw::ByteBuffer{target.key.keyReference});
    default:
        return "entry";
    }
}

void Wipe::collectStructuralFiles() {
    structural_.assign(std::begin(fixedStructuralFiles), std::end(fixedStructuralFiles));
    const boost::shared_ptr<fs::ODF>& odf = application_.getODF();
    for (auto kind : {fs::P15File::AODF, fs::P15File::PrKDF, fs::P15File::PuKDF, fs::P15File::CDF,
                      fs::P15File::DODF}) {
        mw::ByteBuffer path = odf->getFileId(channel_, *application_.getFileAccessService(), kind);
        if (!path.empty()) {
            structural_.push_back(lastFileId(path));
        }
    }
}

template <class File> void Wipe::plan(const File& file) {
    Directory directory{&file, file.content(channel_), file.contentLength(channel_), {}};
    const auto& entries = file.entries(channel_);
    const auto& values = file.values(channel_);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        Listed listed{entries[i], false, Target(), false};
        const std::string entryName = std::string(file.name()) + " entry " + std::to_string(i + 1);
        if (targetOf(file, values[i], listed.target)) {
            classify(listed, entryName);
        } else {
            leave(entryName, "not an object the application can remove");
        }
        directory.listed.push_back(std::move(listed));
    }
    directories_.push_back(std::move(directory));
}

// Decides whether the entry goes with its object or both stay.
void Wipe::classify(Listed& listed, const std::string& entryName) {
    Target& target = listed.target;
    const char* refusal = nullptr;
    if (target.kind == Target::valueFile && !target.path.empty()) {
        refusal = isStructural(target.path)   ? "a structural file of the application"
                  : !isValueFile(target.path) ? "outside the application's file identifiers"
                                              : nullptr;
    } else if (target.kind != Target::valueFile) {
        refusal = application_.keyFilesRefusal(target.key, target.kind == Target::privateKey);
    }
    if (refusal) {
        leave(entryName + " (" + nameOf(target) + ")", refusal);
        keep(target);
        return;
    }
    listed.targeted = true;
    keep(target); // the sweep of a forced wipe leaves it to this entry
}

void Wipe::keep(const Target& target) {
    if (target.kind == Target::valueFile) {
        handledPaths_.push_back(target.path);
    } else {
        handledKeys_.insert({target.kind == Target::privateKey, target.key.keyReference});
    }
}

bool Wipe::isStructural(const mw::ByteBuffer& path) const {
    return std::find(structural_.begin(), structural_.end(), lastFileId(path)) != structural_.end();
}

// A path exactly as the application allocates value files.
bool Wipe::isValueFile(const mw::ByteBuffer& path) const {
    if (path.empty() || path.size() > 4) {
        return false;
    }
    unsigned int id = 0;
    for (unsigned char byte : path) {
        id = (id << 8) | byte;
    }
    for (auto type : {fs::DataObjectFile, fs::ProtectedValueFile, fs::CertificateFile}) {
        const P15Application::IdRange range = application_.getFileIdRange(type);
        if (id >= range.first && id <= range.second && util::idToBytes(id) == path) {
            return true;
        }
    }
    return false;
}

void Wipe::dropEntries(Directory& directory) {
    try {
        store(directory, contentWithout(directory, [](const Listed& l) { return l.targeted; }));
    } catch (const card::CardException& failure) {
        leave(directory.file->name(), failure);
        for (Listed& listed : directory.listed) {
            listed.targeted = false;
        }
    }
}

void Wipe::removeTargets(Directory& directory) {
    for (Listed& listed : directory.listed) {
        if (listed.targeted) {
            listed.removed = remove(listed.target, nameOf(listed.target));
        }
    }
}

// Lists again what the card would not let go.
void Wipe::restoreEntries(Directory& directory) {
    try {
        store(directory, contentWithout(directory, [](const Listed& l) { return l.removed; }));
    } catch (const card::CardException& failure) {
        leave(std::string(directory.file->name()) + " (putting entries back)", failure);
    }
}

// Every value file identifier of the ranges, listed or not.
void Wipe::sweepValueFiles() {
    for (auto type : {fs::DataObjectFile, fs::ProtectedValueFile, fs::CertificateFile}) {
        const P15Application::IdRange range = application_.getFileIdRange(type);
        for (std::uint64_t id = range.first; id <= range.second; ++id) {
            Target target;
            target.kind = Target::valueFile;
            target.path = util::idToBytes(static_cast<unsigned int>(id));
            if (std::find(handledPaths_.begin(), handledPaths_.end(), target.path) !=
                handledPaths_.end()) {
                continue;
            }
            keep(target);
            if (isStructural(target.path)) {
                leave(nameOf(target), "a structural file of the application");
            } else {
                remove(target, nameOf(target));
            }
        }
    }
}

// Every key of the key-id ranges; the card layer names a key by its
// reference where the application names no key file.
void Wipe::sweepKeys() {
    for (auto type : {fs::RsaPrivateKey1024, fs::RsaPublicKey1024, fs::RsaPrivateKey1536,
                      fs::RsaPublicKey1536, fs::RsaPrivateKey2048, fs::RsaPublicKey2048}) {
        const P15Application::IdRange range = application_.getKeyIdRange(type);
        for (unsigned int kid = range.first; kid <= range.second; ++kid) {
            Target target;
            target.kind = type % 2 == 1 ? Target::privateKey : Target::publicKey;
            target.key = application_.applicationKey(type, static_cast<unsigned char>(kid));
            if (handledKeys_.count({type % 2 == 1, target.key.keyReference}) == 0) {
                keep(target);
                remove(target, nameOf(target));
            }
        }
    }
}

// Deletes one object; true when it is gone (or was never there).
bool Wipe::remove(const Target& target, const std::string& what) {
    try {
        switch (target.kind) {
        case Target::valueFile:
            if (!target.path.empty()) {
                application_.getFileSystemService()->deleteFile(channel_, target.path);
            }
            break;
        case Target::privateKey:
            application_.getAsymmetricKeyManagementService()->removePrivateKey(channel_,
                                                                               target.key);
            break;
        case Target::publicKey:
            application_.getAsymmetricKeyManagementService()->removePublicKey(channel_, target.key);
            break;
        default:
            break;
        }
        return true;
    } catch (const card::CardException& failure) {
        if (util::isFileNotFound(failure)) {
            return true;
        }
        leave(what, failure);
        return false;
    }
}

void Wipe::leave(const std::string& what, const std::string& why) {
    left_.push_back(what + ": " + why);
}

void Wipe::leave(const std::string& what, const card::CardException& failure) {
    leave(what, describe(failure));
}

void Wipe::store(const Directory& directory, const mw::ByteBuffer& content) const {
    const fs::P15File& file = *directory.file;
    fs::EntryLayout layout(file.content(channel_), file.contentLength(channel_),
                           file.fileSize(channel_));
    layout.changeTo(content);
    application_.writeEntries(channel_, file, layout);
}

// The directory file as read, less the entries `gone` picks.
mw::ByteBuffer Wipe::contentWithout(const Directory& directory, bool (*gone)(const Listed&)) const {
    std::vector<std::size_t> offsets;
    for (const Listed& listed : directory.listed) {
        if (gone(listed)) {
            offsets.push_back(listed.entry.offset);
        }
    }
    fs::EntryLayout layout(directory.original, directory.used, directory.file->fileSize(channel_));
    layout.remove(offsets);
    return layout.content();
}

void Wipe::report() const {
    if (left_.empty()) {
        return;
    }
    std::string detail;
    for (const std::string& line : left_) {
        detail += (detail.empty() ? "" : "; ") + line;
    }
    BOOST_THROW_EXCEPTION(ApplicationException()
                          << ErrorText("wipe left objects on the card")
                          << ErrorData(static_cast<unsigned int>(left_.size()))
                          << ErrorDetail(detail));
}

} // namespace detail
} // namespace pkcs15
} // namespace app
