#ifndef APP_OBJECT_ABSTRACTCARDOBJECT_HPP
#define APP_OBJECT_ABSTRACTCARDOBJECT_HPP

#include "app/IAccessControlled.hpp"
#include "app/object/ICardObject.hpp"
#include "app/object/OptionalValue.hpp"
#include "mw/ByteBuffer.hpp"

namespace app {
namespace object {

// The attributes every card object has, held in memory until written.
class AbstractCardObject : public virtual ICardObject, public virtual IAccessControlled {
public:
    void setLabel(const std::string& label) override { label_.set(label); }
    const boost::optional<std::string>& getLabel() const override { return label_.get(); }
    void setFlags(std::uint8_t flags) override { flags_.set(flags); }
    const boost::optional<std::uint8_t>& getFlags() const override { return flags_.get(); }
    const boost::optional<AccessControlRules>& getAccessControlRules() const override {
        return accessControlRules_.get();
    }
    void setAccessControlRules(const AccessControlRules& rules) override {
        accessControlRules_.set(rules);
    }

    // The authId of the authentication object that protects this object.
    const boost::optional<mw::ByteBuffer>& getProtectingAuthId() const {
        return protectingAuthId_.get();
    }
    void setProtectingAuthId(const mw::ByteBuffer& authId) { protectingAuthId_.set(authId); }

    // The holders themselves, for the code that decodes and encodes entries.
    OptionalValue<std::string>& labelHolder() { return label_; }
    const OptionalValue<std::string>& labelHolder() const { return label_; }
    OptionalValue<std::uint8_t>& flagsHolder() { return flags_; }
    const OptionalValue<std::uint8_t>& flagsHolder() const { return flags_; }
    OptionalValue<mw::ByteBuffer>& protectingAuthIdHolder() { return protectingAuthId_; }
    const OptionalValue<mw::ByteBuffer>& protectingAuthIdHolder() const {
        return protectingAuthId_;
    }
    OptionalValue<AccessControlRules>& accessControlRulesHolder() { return accessControlRules_; }
    const OptionalValue<AccessControlRules>& accessControlRulesHolder() const {
        return accessControlRules_;
    }

    // Whether the host set any attribute since the object was read or written.
    virtual bool isTouched() const;
    virtual void clearTouched() const;

protected:
    OptionalValue<std::string> label_;
    OptionalValue<std::uint8_t> flags_;
    OptionalValue<mw::ByteBuffer> protectingAuthId_;
    OptionalValue<AccessControlRules> accessControlRules_;
};

} // namespace object
} // namespace app

#endif
