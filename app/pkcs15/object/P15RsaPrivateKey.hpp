#ifndef APP_PKCS15_OBJECT_P15RSAPRIVATEKEY_HPP
#define APP_PKCS15_OBJECT_P15RSAPRIVATEKEY_HPP

#include "app/object/AbstractPrivateRSAKey.hpp"
#include "app/object/IEncodedEntry.hpp"
#include "app/pkcs15/object/AbstractP15Key.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <boost/weak_ptr.hpp>

namespace app {
namespace pkcs15 {

namespace fs {
class PrKDF;
}

namespace object {

template <bool Const> struct RsaKeyHoldersOf;
using RsaKeyHolders = RsaKeyHoldersOf<false>;
using ConstRsaKeyHolders = RsaKeyHoldersOf<true>;

// An RSA private key of the application: one entry of EF(PrKDF) naming a key
// inside the card. A new key gets a free key reference when written; its
// CRT components go to the card through the key management service, into a
// private key container and, for its public part, a public key container
// under the same reference. Its value is never read back.
//
// An entry read from the card is rewritten from what was read, with only
// what the host set replaced (see P15Pin).
class P15RsaPrivateKey : public app::object::AbstractPrivateRSAKey,
                         public app::object::IEncodedEntry,
                         public AbstractP15Key {
public:
    // A new key, not on the card yet. The PrKDF owns the keys it lists.
    explicit P15RsaPrivateKey(boost::weak_ptr<const fs::PrKDF> prkdf);
    // The key of a PrKDF entry and the entry's bytes.
    P15RsaPrivateKey(boost::weak_ptr<const fs::PrKDF> prkdf, const oss::PrivateKeyType& entry,
                     mw::ByteBuffer encoding);

    ObjectClass getObjectClass() const override { return PrivateKeyObject; }
    card::service::KeyRef getKeyReference() const override { return p15KeyReference(); }

    void read(const card::IChannel& channel, const P15Application& application) override;
    void write(const card::IChannel& channel, const P15Application& application) const override;
    void remove(const card::IChannel& channel, const P15Application& application) const override;

    // Gives a new key the reference under which the card generates its key
    // pair: its write then brings only the entry to the card.
    void setGeneratedKeyReference(card::service::KeyRef keyRef) const;

    // The entry as it is on the card; empty for a new key.
    const mw::ByteBuffer& getEncoding() const override { return encoding_; }
    // The entry with the host's changes.
    oss::PrivateKeyType encodePrivateKeyType() const;

private:
    // Removes the entry only; the card's key stays as it is.
    void removeEntry(const card::IChannel& channel, const P15Application& application) const;
    RsaKeyHolders holders();
    ConstRsaKeyHolders holders() const;
    void decodePrivateKeyType(const oss::PrivateKeyType& entry);
    // Takes a key reference and gives it to this key (the object only).
    void assignKeyReference(const card::IChannel& channel, const P15Application& application) const;
    void importKey(const card::IChannel& channel, const P15Application& application) const;
    // Removes what importKey brought to the card; a failure there is passed over.
    void undoImport(const card::IChannel& channel, const P15Application& application,
                    bool withPublicPart) const;
    void removeKeyFromCard(const card::IChannel& channel, const P15Application& application,
                           bool withPublicPart) const;

    boost::weak_ptr<const fs::PrKDF> prkdf_;
    mutable mw::ByteBuffer encoding_;
    mutable boost::optional<oss::PrivateKeyType> entry_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
