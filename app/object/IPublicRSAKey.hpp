#ifndef APP_OBJECT_IPUBLICRSAKEY_HPP
#define APP_OBJECT_IPUBLICRSAKEY_HPP

#include "app/object/IPublicKey.hpp"

namespace app {
namespace object {

class MW_EXPORT_TYPE IPublicRSAKey : public virtual IPublicKey {
public:
    // Where the key's value lies on the card.
    virtual const mw::ByteBuffer& getKeyValueReference() const = 0;
    virtual const std::uint16_t& getModulusLength() const = 0;
    virtual void setModulusLength(std::uint16_t bits) = 0;
    virtual const mw::ByteBuffer& getModulus() const = 0;
    virtual void setModulus(const mw::ByteBuffer& modulus) = 0;
    virtual const mw::ByteBuffer& getPublicExponent() const = 0;
    virtual void setPublicExponent(const mw::ByteBuffer& exponent) = 0;
};

} // namespace object
} // namespace app

#endif
