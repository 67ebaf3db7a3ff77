#ifndef HOST_ISO7816_FILESYSTEMSERVICE_HPP
#define HOST_ISO7816_FILESYSTEMSERVICE_HPP

#include "card/service/IFileSystemService.hpp"
#include "host/iso7816/FileSelection.hpp"

#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

// CREATE FILE and DELETE FILE. Both first select the parent DF: the card
// creates and deletes below its current DF, and only a fresh SELECT makes
// sure which one that is.
class FileSystemService : public card::service::IFileSystemService {
public:
    explicit FileSystemService(boost::shared_ptr<FileSelection> selection);

    void createFile(const card::IChannel& channel,
                    const card::service::IFileCreationParams& params) const override;
    void deleteFile(const card::IChannel& channel, const mw::ByteBuffer& path) const override;

private:
    void create(const card::Transaction& held, const mw::ByteBuffer& parentDf, Fcp fcp,
                const card::service::AccessConditions& conditions) const;

    boost::shared_ptr<FileSelection> selection_;
};

constexpr unsigned char privateKeyFilePrefix = 0x0E;
constexpr unsigned char publicKeyFilePrefix = 0x0F;

// The file of a key: the key reference's file identifier, or else, as the
// card profile places keys, `prefix` (0E private, 0F public) and the key id
// of a reference 80 | kid. Any other reference or path: IllegalArgumentException.
mw::ByteBuffer keyFileId(const card::service::KeyRef& key, unsigned char prefix);

} // namespace iso7816
} // namespace host

#endif
