#ifndef APP_OBJECT_ABSTRACTPUBLICRSAKEY_HPP
#define APP_OBJECT_ABSTRACTPUBLICRSAKEY_HPP

#include "app/object/AbstractPublicKey.hpp"
#include "app/object/IPublicRSAKey.hpp"

namespace app {
namespace object {

// The attribute values of an RSA public key.
class AbstractPublicRSAKey : public virtual IPublicRSAKey, public AbstractPublicKey {
public:
    std::uint32_t getKeyType() const override { return RsaPublicKey; }

    const mw::ByteBuffer& getKeyValueReference() const override { return keyValueReference_.get(); }
    const std::uint16_t& getModulusLength() const override { return modulusLength_.get(); }
    void setModulusLength(std::uint16_t bits) override;
    const mw::ByteBuffer& getModulus() const override { return modulus_.get(); }
    // Leaves the modulus length alone: that is the host's to set.
    void setModulus(const mw::ByteBuffer& modulus) override;
    const mw::ByteBuffer& getPublicExponent() const override { return publicExponent_.get(); }
    void setPublicExponent(const mw::ByteBuffer& exponent) override {
        publicExponent_.set(exponent);
    }

    bool isTouched() const override;
    void clearTouched() const override;

    bool isKeyMaterialTouched() const {
        return modulus_.isTouched() || publicExponent_.isTouched();
    }

protected:
    TrackedValue<std::uint16_t> modulusLength_;
    TrackedValue<mw::ByteBuffer> modulus_;
    TrackedValue<mw::ByteBuffer> publicExponent_;
    // Set when a write gives a new key its place on the card.
    mutable TrackedValue<mw::ByteBuffer> keyValueReference_;
};

} // namespace object
} // namespace app

#endif
