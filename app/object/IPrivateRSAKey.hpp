#ifndef APP_OBJECT_IPRIVATERSAKEY_HPP
#define APP_OBJECT_IPRIVATERSAKEY_HPP

#include "app/object/IPrivateKey.hpp"

namespace app {
namespace object {

// An RSA private key. The CRT components (in the order of the card layer's
// RsaPrivateCrtKeySpec) go to the card when the key is written; they are
// never read back from it.
class MW_EXPORT_TYPE IPrivateRSAKey : public virtual IPrivateKey {
public:
    virtual void setCrtComponents(const mw::ByteBuffer& p, const mw::ByteBuffer& q,
                                  const mw::ByteBuffer& dp, const mw::ByteBuffer& dq,
                                  const mw::ByteBuffer& pInv, const mw::ByteBuffer& qInv) = 0;
    virtual const mw::ByteBuffer& getP() const = 0;
    virtual const mw::ByteBuffer& getQ() const = 0;
    virtual const mw::ByteBuffer& getDp() const = 0;
    virtual const mw::ByteBuffer& getDq() const = 0;
    virtual const mw::ByteBuffer& getPInv() const = 0;
    virtual const mw::ByteBuffer& getQInv() const = 0;
    // Where the key's value lies on the card.
    virtual const mw::ByteBuffer& getKeyValueReference() const = 0;
    virtual const std::uint16_t& getModulusLength() const = 0;
    virtual void setModulusLength(std::uint16_t bits) = 0;
    virtual const mw::ByteBuffer& getPublicExponent() const = 0;
    virtual void setPublicExponent(const mw::ByteBuffer& exponent) = 0;
};

} // namespace object
} // namespace app

#endif
