#ifndef APP_PKCS15_OBJECT_P15RSAPUBLICKEY_HPP
#define APP_PKCS15_OBJECT_P15RSAPUBLICKEY_HPP

#include "app/object/AbstractPublicRSAKey.hpp"
#include "app/object/IEncodedEntry.hpp"
#include "app/pkcs15/object/AbstractP15Key.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "card/crypto/spec/KeySpec.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <boost/weak_ptr.hpp>

namespace app {
namespace pkcs15 {

namespace fs {
class PuKDF;
}

namespace object {

template <bool Const> struct RsaKeyHoldersOf;
using RsaKeyHolders = RsaKeyHoldersOf<false>;
using ConstRsaKeyHolders = RsaKeyHoldersOf<true>;

// An RSA public key of the application: one entry of EF(PuKDF) naming a key
// the card holds. Its value is read from the card's key management service.
// The card takes public key material only as the public part of an
// imported or generated private key, so a new public key with material is
// given the first reference free among the public keys (that of the private
// key written just before it) and its entry is written; the material itself
// stays with the host.
//
// An entry read from the card is rewritten from what was read, with only
// what the host set replaced (see P15Pin).
class P15RsaPublicKey : public app::object::AbstractPublicRSAKey,
                        public app::object::IEncodedEntry,
                        public AbstractP15Key {
public:
    // A new key, not on the card yet. The PuKDF owns the keys it lists.
    explicit P15RsaPublicKey(boost::weak_ptr<const fs::PuKDF> pukdf);
    // The key of a PuKDF entry and the entry's bytes.
    P15RsaPublicKey(boost::weak_ptr<const fs::PuKDF> pukdf, const oss::PublicKeyType& entry,
                    mw::ByteBuffer encoding);

    ObjectClass getObjectClass() const override { return PublicKeyObject; }
    card::service::KeyRef getKeyReference() const override { return p15KeyReference(); }

    void read(const card::IChannel& channel, const P15Application& application) override;
    void write(const card::IChannel& channel, const P15Application& application) const override;
    void remove(const card::IChannel& channel, const P15Application& application) const override;

    // Gives a new key the reference of a key pair the card generates.
    void setGeneratedKeyReference(card::service::KeyRef keyRef) const;
    // Takes the key's value as the card holds it (not a change of the host).
    void loadKeyValue(const card::crypto::spec::RsaPublicKeySpec& value);

    // The entry as it is on the card; empty for a new key.
    const mw::ByteBuffer& getEncoding() const override { return encoding_; }
    // The entry with the host's changes.
    oss::PublicKeyType encodePublicKeyType() const;

private:
    // Removes the entry only; the card's key stays as it is.
    void removeEntry(const card::IChannel& channel, const P15Application& application) const;
    RsaKeyHolders holders();
    ConstRsaKeyHolders holders() const;
    void decodePublicKeyType(const oss::PublicKeyType& entry);

    boost::weak_ptr<const fs::PuKDF> pukdf_;
    mutable mw::ByteBuffer encoding_;
    mutable boost::optional<oss::PublicKeyType> entry_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
