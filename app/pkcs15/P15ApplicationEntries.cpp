#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "app/pkcs15/fs/P15File.hpp"
#include "card/service/IFileAccessService.hpp"

#include <algorithm>

namespace app {
namespace pkcs15 {

mw::ByteBuffer P15Application::updateEncodedAttributes(const fs::P15File* file,
                                                       const mw::ByteBuffer& oldEncoding,
                                                       const mw::ByteBuffer& newEncoding) const {
    const card::IChannel& channel = boundChannel();
    if (file->content(channel).empty()) {
        APP_THROW(ApplicationException,
                  "unable to update encoded attributes for requested file id");
    }
    // The bytes a new entry may take behind the entries, and the one after them.
    const std::size_t used = file->contentLength(channel);
    file->readUpTo(channel, used + newEncoding.size() + 1);
    std::size_t offset = used;
    if (!oldEncoding.empty()) {
        const auto& entries = file->entries(channel);
        const auto old = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
            return entry.encoding == oldEncoding;
        });
        if (old == entries.end()) {
            APP_THROW(ApplicationException,
                      "unable to update encoded attributes for requested file id");
        }
        offset = old->offset;
    }
    fs::EntryLayout layout(file->content(channel), used, file->fileSize(channel),
                           file->getKind() != fs::P15File::TokenInfo);
    layout.replace(offset, oldEncoding.size(), newEncoding);
    writeEntries(channel, *file, layout);
    return layout.content();
}

void P15Application::writeEntries(const card::IChannel& channel, const fs::P15File& file,
                                  const fs::EntryLayout& layout) const {
    if (!layout.writes().empty()) {
        fileAccessService_->select(channel, file.getFileId(channel, *fileAccessService_));
    }
    try {
        for (const fs::EntryLayout::Write& write : layout.writes()) {
            fileAccessService_->update(channel, write.offset, write.data);
        }
    } catch (...) {
        file.dropContent(); // some of the writes may have reached the card
        throw;
    }
    file.replaceContent(layout.content());
}

void P15Application::clearContent(const fs::P15File* file) const {
    file->dropContent();
}

} // namespace pkcs15
} // namespace app
