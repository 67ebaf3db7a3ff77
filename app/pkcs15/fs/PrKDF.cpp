#include "app/pkcs15/fs/PrKDF.hpp"

#include "app/pkcs15/object/P15RsaPrivateKey.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

PrKDF::~PrKDF() = default;

const std::vector<boost::shared_ptr<object::P15RsaPrivateKey>>&
PrKDF::privateKeys(const card::IChannel& channel) const {
    return rsaKeys(*this, channel, oss::PrivateKeyType::privateRSAKey, keys_);
}

bool PrKDF::rsaKeyRef(const oss::PrivateKeyType& key, card::service::KeyRef& ref) const {
    const auto& rsa = key.privateRSAKeyValue;
    return key.choice == oss::PrivateKeyType::privateRSAKey &&
           fs::rsaKeyRef(rsa.classAttributes, rsa.typeAttributes.value,
                         rsa.typeAttributes.modulusLength, ref);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
