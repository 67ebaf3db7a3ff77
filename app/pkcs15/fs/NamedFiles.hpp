#ifndef APP_PKCS15_FS_NAMEDFILES_HPP
#define APP_PKCS15_FS_NAMEDFILES_HPP

#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <vector>

namespace app {
namespace pkcs15 {
namespace fs {

// What one directory entry names on the card, read from its DER whatever
// kind of object it lists, so that entries of kinds the application does not
// model (EC keys, other data objects, raw alternatives, unknown components)
// keep their files and keys from being handed out or deleted.

// The paths of every Path structure in the entry (a SEQUENCE whose first
// component is an OCTET STRING of whole file identifiers, followed by
// nothing or by its INTEGER index or [0] length), as written: index and
// length do not change which file a path names. Constructed values are
// searched at any depth; what does not parse ends the search of that value
// only. A value that merely looks like a Path costs an identifier, never a
// file.
std::vector<mw::ByteBuffer> pathsIn(const mw::ByteBuffer& entry);

// The key reference of a key entry of any kind: its CommonKeyAttributes, the
// second component of every PKCS#15 key object. None when the entry has no
// such layout or names no reference in 0..255.
boost::optional<unsigned char> keyReferenceIn(const mw::ByteBuffer& keyEntry);

// Whether `named`, a path as an entry writes it, designates `file`, a path
// below the application DF. A path starting with 3FFF is relative to the
// application DF, like one without a prefix. The application does not know
// where its DF lies below the MF, so a 3F00 path designates every file it
// ends with below at least one DF: a file may be taken as named when it is
// not, never the other way round.
bool designates(const mw::ByteBuffer& named, const mw::ByteBuffer& file);

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
