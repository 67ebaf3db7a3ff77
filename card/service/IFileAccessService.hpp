#ifndef CARD_SERVICE_IFILEACCESSSERVICE_HPP
#define CARD_SERVICE_IFILEACCESSSERVICE_HPP

#include "card/IBaseInterface.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <cstddef>

namespace card {
class IChannel;
namespace service {

// Reading and writing transparent elementary files.
//
// Paths: a two-byte file identifier or a path relative to the application
// DF (it may start with 3FFF, "current DF"), or an absolute path starting
// with 3F00.
class MW_EXPORT_TYPE IFileAccessService : public virtual IInterface {
public:
    // Reads `length` bytes of the selected file from `offset`; a length of 0
    // reads from the offset to the end of the file. Reading at or past the
    // end fails with the card's status word (6B00); a read that runs past the
    // end fails with 6282.
    virtual mw::ByteBuffer read(const IChannel& channel, std::size_t offset,
                                std::size_t length) const = 0;
    // Selects a file by identifier or path and makes it the current file.
    virtual void select(const IChannel& channel, const mw::ByteBuffer& fileIdOrPath) const = 0;
    // Writes `data` into the selected file at `offset`.
    virtual void update(const IChannel& channel, std::size_t offset,
                        const mw::ByteBuffer& data) const = 0;
    // Size of the selected file in bytes, from its control parameters.
    virtual std::size_t size(const IChannel& channel) const = 0;
    // The most bytes one read command returns: a caller that reads in steps
    // can ask for this much at once without costing more commands.
    virtual std::size_t maxReadLength(const IChannel&) const { return 256; }
};

} // namespace service
} // namespace card

#endif
