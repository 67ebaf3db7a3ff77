#ifndef APP_PKCS15_IMPL_RSAKEYPAIRGENERATOR_HPP
#define APP_PKCS15_IMPL_RSAKEYPAIRGENERATOR_HPP

#include "app/crypto/IKeyPairGenerator.hpp"

#include <boost/weak_ptr.hpp>

namespace app {
namespace pkcs15 {

class P15Application;

namespace object {
class P15RsaPrivateKey;
class P15RsaPublicKey;
} // namespace object

namespace impl {

// Generates an RSA key pair of 1024, 1536 or 2048 bits on the card for two
// new key objects: allocates their references, writes their entries,
// creates the key containers and has the card fill them. A step the card
// refuses takes back what the steps before it brought to the card.
class RsaKeyPairGenerator : public app::crypto::IKeyPairGenerator {
public:
    explicit RsaKeyPairGenerator(boost::weak_ptr<const P15Application> application);

    void generate(const card::IChannel& channel,
                  const boost::shared_ptr<app::object::IPrivateKey>& privateKey,
                  const boost::shared_ptr<app::object::IPublicKey>& publicKey) const override;

private:
    boost::weak_ptr<const P15Application> application_;
};

} // namespace impl
} // namespace pkcs15
} // namespace app

#endif
