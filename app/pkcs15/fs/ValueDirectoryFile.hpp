#ifndef APP_PKCS15_FS_VALUEDIRECTORYFILE_HPP
#define APP_PKCS15_FS_VALUEDIRECTORYFILE_HPP

#include "app/pkcs15/fs/Allocation.hpp"
#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/fs/DirectoryFile.hpp"

namespace card {
namespace service {
class IFileAccessService;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace fs {

// A directory file whose objects keep their values in files of their own
// (certificates, data objects).
template <class Value> class ValueDirectoryFile : public DirectoryFile<Value> {
public:
    // A value file identifier that no entry of any directory file names yet.
    mw::ByteBuffer getFreeFileId(const card::IChannel& channel,
                                 const card::service::IFileAccessService& /*fileAccess*/,
                                 AppObjectType type) const {
        return freeValueFileId(*this->odf(), channel, type, exhaustedText());
    }

protected:
    using DirectoryFile<Value>::DirectoryFile;

    virtual const char* exhaustedText() const = 0;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
