#ifndef APP_PKCS15_FS_ALLOCATION_HPP
#define APP_PKCS15_FS_ALLOCATION_HPP

#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

namespace card {
class IChannel;
}

namespace app {
namespace pkcs15 {
namespace fs {

class ODF;
class P15File;

// The allocation behind CDF/DODF::getFreeFileId: loads both directories
// (their value files share one identifier space) and asks the application;
// exhaustion is reported as app::OutOfMemoryException `exhaustedText`.
mw::ByteBuffer freeValueFileId(ODF& odf, const card::IChannel& channel, AppObjectType type,
                               const char* exhaustedText);

// The allocation behind PrKDF/PuKDF::getFreeKeyReference: checks the size,
// loads the file, asks the application; exhaustion is reported as
// app::ApplicationException `exhaustedText`.
card::service::KeyRef freeKeyReference(const P15File& file, const card::IChannel& channel,
                                       unsigned short modulusBits, bool privateKey,
                                       const char* exhaustedText);

// The card reference of an RSA key entry: its key reference, size and key
// file. False when the entry names no key reference.
bool rsaKeyRef(const oss::CommonKeyAttributes& common, const oss::ObjectValue& value,
               oss::Integer modulusLength, card::service::KeyRef& ref);

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
