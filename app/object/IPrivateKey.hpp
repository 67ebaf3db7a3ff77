#ifndef APP_OBJECT_IPRIVATEKEY_HPP
#define APP_OBJECT_IPRIVATEKEY_HPP

#include "app/object/IKey.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>

namespace app {
namespace object {

// A private key; its work runs on the card.
class MW_EXPORT_TYPE IPrivateKey : public virtual IKey {
public:
    enum PrivateKeyType : std::uint32_t { RsaPrivateKey, EcPrivateKey };

    virtual std::uint32_t getKeyType() const = 0;
    // The DER-encoded subject Name of the key's owner.
    virtual const boost::optional<mw::ByteBuffer>& getSubjectName() const = 0;
    virtual void setSubjectName(const mw::ByteBuffer& name) = 0;
};

} // namespace object
} // namespace app

#endif
