#ifndef CARD_SERVICE_IFILESYSTEMSERVICE_HPP
#define CARD_SERVICE_IFILESYSTEMSERVICE_HPP

#include "card/IBaseInterface.hpp"
#include "card/service/FileCreationParams.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

namespace card {
class IChannel;
namespace service {

// Creating and deleting files and key containers.
class MW_EXPORT_TYPE IFileSystemService : public virtual IInterface {
public:
    // Creates the file that the parameters describe: a value file
    // (DataObjectCreateParams) or a key container (PrivateKeyCreateParams,
    // PublicKeyCreateParams).
    virtual void createFile(const IChannel& channel, const IFileCreationParams& params) const = 0;
    // Deletes the file at `path` (same path forms as the file access service).
    virtual void deleteFile(const IChannel& channel, const mw::ByteBuffer& path) const = 0;
};

} // namespace service
} // namespace card

#endif
