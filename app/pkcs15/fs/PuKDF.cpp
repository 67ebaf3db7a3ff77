#include "app/pkcs15/fs/PuKDF.hpp"

#include "app/pkcs15/fs/Allocation.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

card::service::KeyRef PuKDF::getFreeKeyReference(const card::IChannel& channel,
                                                 const card::service::IFileAccessService&,
                                                 unsigned short modulusBits) const {
    return freeKeyReference(*this, channel, modulusBits, false,
                            "maximum number of public keys reached");
}

std::vector<card::service::KeyRef> PuKDF::keyRefs(const card::IChannel& channel) const {
    return rsaKeyRefs(values(channel), oss::PublicKeyType::publicRSAKey,
                      &oss::PublicKeyType::publicRSAKeyValue);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
