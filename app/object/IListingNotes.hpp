#ifndef APP_OBJECT_ILISTINGNOTES_HPP
#define APP_OBJECT_ILISTINGNOTES_HPP

#include "mw/Visibility.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace card {
class IChannel;
}

namespace app {
namespace object {

/// Offered beside ICardObjectRepository by an application whose lists may
/// leave entries of its directory files out: which entries, and why.
class MW_EXPORT_TYPE IListingNotes {
public:
    struct Note {
        std::string file;   ///< "EF(PrKDF)", ...
        std::size_t offset; ///< of the entry, from the file's start
        std::string reason; ///< "kept, not listed: EC private key", ...
    };

    virtual ~IListingNotes() = default;
    /// The entries the object lists leave out, file by file in file order;
    /// reads what the lists read, and no more.
    virtual std::vector<Note> getListingNotes(const card::IChannel& channel) const = 0;
};

} // namespace object
} // namespace app

#endif
