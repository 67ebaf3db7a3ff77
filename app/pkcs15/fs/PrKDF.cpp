#include "app/pkcs15/fs/PrKDF.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

bool PrKDF::rsaKeyRef(const oss::PrivateKeyType& key, card::service::KeyRef& ref) const {
    const auto& rsa = key.privateRSAKeyValue;
    return key.choice == oss::PrivateKeyType::privateRSAKey &&
           fs::rsaKeyRef(rsa.classAttributes, rsa.typeAttributes.value,
                         rsa.typeAttributes.modulusLength, ref);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
