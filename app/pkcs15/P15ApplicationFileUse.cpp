// Which files and keys the directory files name: what the allocation must
// not hand out and a removal must not delete.
#include "app/pkcs15/P15Application.hpp"

#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/NamedFiles.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"

#include <algorithm>

namespace app {
namespace pkcs15 {

using card::service::KeyRef;

namespace {

bool entryNames(const mw::ByteBuffer& entry, const mw::ByteBuffer& file) {
    const std::vector<mw::ByteBuffer> paths = fs::pathsIn(entry);
    return P15Application::isNamed(paths, file);
}

} // namespace

std::vector<const fs::P15File*> P15Application::directoryFiles() const {
    const boost::shared_ptr<fs::ODF>& odf = getODF();
    return {odf->getAODF().get(), odf->getPrKDF().get(), odf->getPuKDF().get(), odf->getCDF().get(),
            odf->getDODF().get()};
}

std::vector<mw::ByteBuffer> P15Application::namedFiles(const card::IChannel& channel) const {
    std::vector<mw::ByteBuffer> named;
    for (const fs::P15File* file : directoryFiles()) {
        mw::ByteBuffer path = file->getFileId(channel, *fileAccessService_);
        if (!path.empty()) {
            named.push_back(std::move(path));
        }
        for (const fs::P15File::Entry& entry : file->entries(channel)) {
            for (mw::ByteBuffer& inEntry : fs::pathsIn(entry.encoding)) {
                named.push_back(std::move(inEntry));
            }
        }
    }
    return named;
}

bool P15Application::isNamed(const std::vector<mw::ByteBuffer>& named, const mw::ByteBuffer& file) {
    return std::any_of(named.begin(), named.end(),
                       [&file](const mw::ByteBuffer& path) { return fs::designates(path, file); });
}

std::size_t P15Application::entriesNaming(const card::IChannel& channel,
                                          const mw::ByteBuffer& file) const {
    std::size_t count = 0;
    for (const fs::P15File* directory : directoryFiles()) {
        const auto& entries = directory->entries(channel);
        count += static_cast<std::size_t>(
            std::count_if(entries.begin(), entries.end(),
                          [&file](const auto& entry) { return entryNames(entry.encoding, file); }));
    }
    return count;
}

// The key files of a reference in the key-id ranges are the application's,
// whether or not it wrote the entry; a listed path must name that file.
const char* P15Application::keyFilesRefusal(KeyRef& key, bool privateKey) const {
    for (auto type : {fs::RsaPrivateKey1024, fs::RsaPrivateKey1536, fs::RsaPrivateKey2048}) {
        const auto keyType = static_cast<fs::AppObjectType>(privateKey ? type : type + 1);
        const IdRange range = getKeyIdRange(keyType);
        for (unsigned int kid = range.first; kid <= range.second; ++kid) {
            const KeyRef candidate = applicationKey(keyType, static_cast<unsigned char>(kid));
            if (candidate.keyReference != key.keyReference) {
                continue;
            }
            if (!key.fileId.empty() && !candidate.fileId.empty() &&
                !fs::designates(key.fileId, candidate.fileId)) {
                return "its key file is not the one of its key reference";
            }
            key = candidate;
            return nullptr;
        }
    }
    return "outside the application's key references";
}

// How the card layer is told about a key of the application: by its key
// file where the application names key files, by its reference alone in
// applet mode.
KeyRef P15Application::applicationKey(fs::AppObjectType type, unsigned char kid) const {
    return appletMode_ ? keyByReference(type, kid) : makeKeyRef(type, kid);
}

bool P15Application::keyFileNamed(const card::IChannel& channel, const KeyRef& key,
                                  bool privateKey) const {
    const boost::shared_ptr<fs::ODF>& odf = getODF();
    for (const fs::P15File* file : {static_cast<const fs::P15File*>(odf->getPrKDF().get()),
                                    static_cast<const fs::P15File*>(odf->getPuKDF().get())}) {
        const bool holdsPair = file->getKind() == fs::P15File::PrKDF;
        for (const fs::P15File::Entry& entry : file->entries(channel)) {
            const boost::optional<unsigned char> reference = fs::keyReferenceIn(entry.encoding);
            if ((holdsPair || !privateKey) && reference == key.keyReference) {
                return true;
            }
            if (!key.fileId.empty() && entryNames(entry.encoding, key.fileId)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace pkcs15
} // namespace app
