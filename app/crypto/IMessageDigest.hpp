#ifndef APP_CRYPTO_IMESSAGEDIGEST_HPP
#define APP_CRYPTO_IMESSAGEDIGEST_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <string>

namespace app {
namespace crypto {

// A hash function an application may offer. The PKCS#15 application offers
// none: hosts hash with their own crypto provider.
class MW_EXPORT_TYPE IMessageDigest {
public:
    virtual ~IMessageDigest() = default;
    virtual const std::string& getAlgorithm() const = 0;
    virtual mw::ByteBuffer digest(const mw::ByteBuffer& data) const = 0;
};

} // namespace crypto
} // namespace app

#endif
