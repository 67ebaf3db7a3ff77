#ifndef APP_OBJECT_ABSTRACTPIN_HPP
#define APP_OBJECT_ABSTRACTPIN_HPP

#include "app/object/AbstractAuthenticationObject.hpp"
#include "app/object/IPin.hpp"

namespace app {
namespace object {

// The attributes of a PIN; the card-side operations come from the class
// that knows the card application.
class AbstractPin : public virtual IPin, public virtual AbstractAuthenticationObject {
public:
    const std::uint16_t& getPinFlags() const override { return pinFlags_.get(); }
    void setPinFlags(std::uint16_t flags) override { pinFlags_.set(flags); }
    const std::uint32_t& getPinType() const override { return pinType_.get(); }
    void setPinType(std::uint32_t type) override { pinType_.set(type); }
    const boost::optional<std::uint16_t>& getMaxLength() const override { return maxLength_.get(); }
    void setMaxLength(std::uint16_t length) override { maxLength_.set(length); }
    const std::uint16_t& getMinLength() const override { return minLength_.get(); }
    void setMinLength(std::uint16_t length) override { minLength_.set(length); }
    const std::uint16_t& getStoredLength() const override { return storedLength_.get(); }
    void setStoredLength(std::uint16_t length) override { storedLength_.set(length); }
    const boost::optional<std::uint8_t>& getPinReference() const override {
        return pinReference_.get();
    }
    void setPinReference(std::uint8_t reference) override { pinReference_.set(reference); }
    const boost::optional<mw::ByteBuffer>& getPadChar() const override { return padChar_.get(); }
    void setPadChar(const mw::ByteBuffer& padChar) override { padChar_.set(padChar); }
    const boost::optional<std::string>& getLastPinChange() const override { return lastPinChange_; }
    const boost::optional<PinPath>& getPath() const override { return path_.get(); }
    const boost::optional<mw::ByteBuffer>& getProtectingAuthId() const override {
        return AbstractCardObject::getProtectingAuthId();
    }

    void checkValue(const mw::ByteBuffer& value, InvalidPinException::Role role) const override;

    bool isTouched() const override;
    void clearTouched() const override;

protected:
    TrackedValue<std::uint16_t> pinFlags_;
    TrackedValue<std::uint32_t> pinType_;
    TrackedValue<std::uint16_t> minLength_;
    TrackedValue<std::uint16_t> storedLength_;
    OptionalValue<std::uint16_t> maxLength_;
    OptionalValue<std::uint8_t> pinReference_;
    OptionalValue<mw::ByteBuffer> padChar_;
    boost::optional<std::string> lastPinChange_; // read only: never written
    OptionalValue<PinPath> path_;
};

} // namespace object
} // namespace app

#endif
