#ifndef CARD_SERVICE_IASYMMETRICKEYMANAGEMENTSERVICE_HPP
#define CARD_SERVICE_IASYMMETRICKEYMANAGEMENTSERVICE_HPP

#include "card/IBaseInterface.hpp"
#include "card/crypto/spec/KeySpec.hpp"
#include "card/crypto/spec/RsaPrivateCrtKeySpec.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/Visibility.hpp"

namespace card {
class IChannel;
namespace service {

// RSA key pairs held by the card.
class MW_EXPORT_TYPE IAsymmetricKeyManagementService : public virtual IInterface {
public:
    // Generates a key pair into the containers created beforehand for the two
    // references and returns the new public key.
    virtual crypto::spec::RsaPublicKeySpec generateKeyPair(const IChannel& channel,
                                                           const KeyRef& privateKey,
                                                           const KeyRef& publicKey) const = 0;
    virtual void removePrivateKey(const IChannel& channel, const KeyRef& key) const = 0;
    virtual void removePublicKey(const IChannel& channel, const KeyRef& key) const = 0;
    virtual crypto::spec::RsaPublicKeySpec readPublicKey(const IChannel& channel,
                                                         const KeyRef& key) const = 0;
    // Brings a private key into the container of `key` (created beforehand).
    virtual void importPrivateKey(const IChannel& channel, const KeyRef& key,
                                  const crypto::spec::RsaPrivateCrtKeySpec& spec) const = 0;
};

} // namespace service
} // namespace card

#endif
