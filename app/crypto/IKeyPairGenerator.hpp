#ifndef APP_CRYPTO_IKEYPAIRGENERATOR_HPP
#define APP_CRYPTO_IKEYPAIRGENERATOR_HPP

#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>

namespace card {
class IChannel;
}

namespace app {
namespace object {
class IPrivateKey;
class IPublicKey;
} // namespace object

namespace crypto {

// Generates a key pair on the card for two new key objects of the
// application and stores them there.
class MW_EXPORT_TYPE IKeyPairGenerator {
public:
    virtual ~IKeyPairGenerator() = default;
    virtual void generate(const card::IChannel& channel,
                          const boost::shared_ptr<app::object::IPrivateKey>& privateKey,
                          const boost::shared_ptr<app::object::IPublicKey>& publicKey) const = 0;
};

} // namespace crypto
} // namespace app

#endif
