#ifndef HOST_ISO7816_FILEACCESSSERVICE_HPP
#define HOST_ISO7816_FILEACCESSSERVICE_HPP

#include "card/service/IFileAccessService.hpp"
#include "host/iso7816/FileSelection.hpp"

#include <boost/shared_ptr.hpp>

namespace host {
namespace iso7816 {

// READ BINARY, SELECT and UPDATE BINARY on transparent EFs of up to FFFF
// bytes. A read moves what one Le allows per command (256 bytes, or with
// extended length what fits 65535 bytes on the wire, status word included);
// an update goes out as one command, chained when it exceeds what one Lc or
// one such APDU carries, so the card stores it in one step.
// Offsets up to 7FFF go in P1-P2 (B0, D6), so cards without the odd-INS
// forms keep working for files that fit; beyond, in an offset data object
// (B1, D7).
class FileAccessService : public card::service::IFileAccessService {
public:
    explicit FileAccessService(boost::shared_ptr<FileSelection> selection);

    mw::ByteBuffer read(const card::IChannel& channel, std::size_t offset,
                        std::size_t length) const override;
    void select(const card::IChannel& channel, const mw::ByteBuffer& fileIdOrPath) const override;
    void update(const card::IChannel& channel, std::size_t offset,
                const mw::ByteBuffer& data) const override;
    std::size_t size(const card::IChannel& channel) const override;
    std::size_t maxReadLength(const card::IChannel& channel) const override;

private:
    mw::ByteBuffer readChunk(const card::Transaction& held, std::size_t offset,
                             std::size_t length) const;

    boost::shared_ptr<FileSelection> selection_;
};

} // namespace iso7816
} // namespace host

#endif
