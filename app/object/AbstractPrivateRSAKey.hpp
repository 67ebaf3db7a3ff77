#ifndef APP_OBJECT_ABSTRACTPRIVATERSAKEY_HPP
#define APP_OBJECT_ABSTRACTPRIVATERSAKEY_HPP

#include "app/object/AbstractPrivateKey.hpp"
#include "app/object/IPrivateRSAKey.hpp"

#include <array>

namespace app {
namespace object {

// The attribute values of an RSA private key. The CRT components live in
// buffers that wipe themselves when released.
class AbstractPrivateRSAKey : public virtual IPrivateRSAKey, public AbstractPrivateKey {
public:
    std::uint32_t getKeyType() const override { return RsaPrivateKey; }

    void setCrtComponents(const mw::ByteBuffer& p, const mw::ByteBuffer& q,
                          const mw::ByteBuffer& dp, const mw::ByteBuffer& dq,
                          const mw::ByteBuffer& pInv, const mw::ByteBuffer& qInv) override;
    const mw::ByteBuffer& getP() const override { return crt_[0].get(); }
    const mw::ByteBuffer& getQ() const override { return crt_[1].get(); }
    const mw::ByteBuffer& getDp() const override { return crt_[2].get(); }
    const mw::ByteBuffer& getDq() const override { return crt_[3].get(); }
    const mw::ByteBuffer& getPInv() const override { return crt_[4].get(); }
    const mw::ByteBuffer& getQInv() const override { return crt_[5].get(); }
    const mw::ByteBuffer& getKeyValueReference() const override { return keyValueReference_.get(); }
    const std::uint16_t& getModulusLength() const override { return modulusLength_.get(); }
    void setModulusLength(std::uint16_t bits) override;
    const mw::ByteBuffer& getPublicExponent() const override { return publicExponent_.get(); }
    void setPublicExponent(const mw::ByteBuffer& exponent) override;

    bool isTouched() const override;
    void clearTouched() const override;

    // Whether the host gave new key material since the key was read or written.
    bool isKeyMaterialTouched() const;

protected:
    TrackedValue<std::uint16_t> modulusLength_;
    TrackedValue<mw::ByteBuffer> publicExponent_;
    std::array<TrackedValue<mw::ByteBuffer>, 6> crt_;
    // Set when a write gives a new key its place on the card.
    mutable TrackedValue<mw::ByteBuffer> keyValueReference_;
};

// Whether `bits` is a modulus size the application supports: 1024, 1536 or 2048.
bool isSupportedModulusSize(unsigned int bits);

} // namespace object
} // namespace app

#endif
