#include "app/pkcs15/fs/CDF.hpp"

#include "app/pkcs15/object/P15X509Certificate.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

CDF::~CDF() = default;

const std::vector<boost::shared_ptr<object::P15X509Certificate>>&
CDF::certificates(const card::IChannel& channel) const {
    return objectsOf(*this, channel, &object::P15X509Certificate::isListed, certificates_);
}

} // namespace fs
} // namespace pkcs15
} // namespace app
