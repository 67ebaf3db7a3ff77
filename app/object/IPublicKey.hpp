#ifndef APP_OBJECT_IPUBLICKEY_HPP
#define APP_OBJECT_IPUBLICKEY_HPP

#include "app/object/IKey.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>

namespace app {
namespace object {

// A public key stored on the card.
class MW_EXPORT_TYPE IPublicKey : public virtual IKey {
public:
    enum PublicKeyType : std::uint32_t { RsaPublicKey, EcPublicKey };

    virtual std::uint32_t getKeyType() const = 0;
    // The DER-encoded subject Name of the key's owner.
    virtual const boost::optional<mw::ByteBuffer>& getSubjectName() const = 0;
    virtual void setSubjectName(const mw::ByteBuffer& name) = 0;
};

} // namespace object
} // namespace app

#endif
