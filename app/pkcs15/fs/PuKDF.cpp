#include "app/pkcs15/fs/PuKDF.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

bool PuKDF::rsaKeyRef(const oss::PublicKeyType& key, card::service::KeyRef& ref) const {
    const auto& rsa = key.publicRSAKeyValue;
    return key.choice == oss::PublicKeyType::publicRSAKey &&
           fs::rsaKeyRef(rsa.classAttributes, rsa.typeAttributes.value,
                         rsa.typeAttributes.modulusLength, ref);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
