#ifndef APP_OBJECT_IENCODEDENTRY_HPP
#define APP_OBJECT_IENCODEDENTRY_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

namespace app {
namespace object {

// An object whose attributes the card holds as one encoded entry (for
// PKCS#15, the DER entry of a directory file). A host that shows an object
// as the card has it reads there what the attributes leave out: access
// rules the application's conditions cannot express, a key reference of 0.
class MW_EXPORT_TYPE IEncodedEntry {
public:
    virtual ~IEncodedEntry() = default;
    // The entry as the card holds it; empty for an object not on the card.
    virtual const mw::ByteBuffer& getEncoding() const = 0;
};

} // namespace object
} // namespace app

#endif
