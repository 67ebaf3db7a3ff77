#ifndef APP_PKCS15_FS_ALLOCATION_HPP
#define APP_PKCS15_FS_ALLOCATION_HPP

#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <vector>

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

// Card references of the RSA keys among `keys` (PrivateKeyType or
// PublicKeyType values); other kinds of key are passed over.
template <class KeyType, class RsaObject>
std::vector<card::service::KeyRef> rsaKeyRefs(const std::vector<KeyType>& keys, int rsaChoice,
                                              RsaObject KeyType::*rsaValue) {
    std::vector<card::service::KeyRef> refs;
    for (const KeyType& key : keys) {
        card::service::KeyRef ref;
        const RsaObject& rsa = key.*rsaValue;
        if (key.choice == rsaChoice && rsaKeyRef(rsa.classAttributes, rsa.typeAttributes.value,
                                                 rsa.typeAttributes.modulusLength, ref)) {
            refs.push_back(std::move(ref));
        }
    }
    return refs;
}

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
