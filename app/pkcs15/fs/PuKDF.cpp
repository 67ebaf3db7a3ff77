#include "app/pkcs15/fs/PuKDF.hpp"

#include "app/pkcs15/object/P15RsaPublicKey.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

PuKDF::~PuKDF() = default;

const std::vector<boost::shared_ptr<object::P15RsaPublicKey>>&
PuKDF::publicKeys(const card::IChannel& channel) const {
    return rsaKeys(*this, channel, oss::PublicKeyType::publicRSAKey, keys_);
}

bool PuKDF::rsaKeyRef(const oss::PublicKeyType& key, card::service::KeyRef& ref) const {
    const auto& rsa = key.publicRSAKeyValue;
    return key.choice == oss::PublicKeyType::publicRSAKey &&
           fs::rsaKeyRef(rsa.classAttributes, rsa.typeAttributes.value,
                         rsa.typeAttributes.modulusLength, ref);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
