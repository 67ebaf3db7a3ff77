#include "app/pkcs15/fs/PrKDF.hpp"

#include "app/pkcs15/fs/Allocation.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

card::service::KeyRef PrKDF::getFreeKeyReference(const card::IChannel& channel,
                                                 const card::service::IFileAccessService&,
                                                 unsigned short modulusBits) const {
    return freeKeyReference(*this, channel, modulusBits, true,
                            "maximum number of private keys reached");
}

std::vector<card::service::KeyRef> PrKDF::keyRefs(const card::IChannel& channel) const {
    return rsaKeyRefs(values(channel), oss::PrivateKeyType::privateRSAKey,
                      &oss::PrivateKeyType::privateRSAKeyValue);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
