#ifndef APP_OBJECT_ABSTRACTKEY_HPP
#define APP_OBJECT_ABSTRACTKEY_HPP

#include "app/object/AbstractCardObject.hpp"
#include "app/object/IKey.hpp"
#include "app/object/TrackedValue.hpp"

namespace app {
namespace object {

// The attributes every key has. A key is native unless the card says not.
class AbstractKey : public virtual IKey, public virtual AbstractCardObject {
public:
    const mw::ByteBuffer& getKeyId() const override { return keyId_.get(); }
    void setKeyId(const mw::ByteBuffer& id) override { keyId_.set(id); }
    const std::uint16_t& getUsage() const override { return usage_.get(); }
    void setUsage(std::uint16_t usage) override { usage_.set(usage); }
    const bool& getNative() const override { return native_.get(); }
    void setNative(bool native) override { native_.set(native); }
    const boost::optional<std::uint8_t>& getAccessFlags() const override {
        return accessFlags_.get();
    }
    void setAccessFlags(std::uint8_t flags) override { accessFlags_.set(flags); }
    const boost::optional<std::string>& getStartDate() const override { return startDate_.get(); }
    void setStartDate(const std::string& date) override { startDate_.set(date); }
    const boost::optional<std::string>& getEndDate() const override { return endDate_.get(); }
    void setEndDate(const std::string& date) override { endDate_.set(date); }
    const boost::optional<std::vector<std::uint32_t>>& getAlgorithmReferences() const override {
        return algorithmReferences_.get();
    }
    void setAlgorithmReferences(const std::vector<std::uint32_t>& references) override {
        algorithmReferences_.set(references);
    }

    // The holders themselves, for the code that decodes and encodes entries.
    TrackedValue<mw::ByteBuffer>& keyIdHolder() { return keyId_; }
    const TrackedValue<mw::ByteBuffer>& keyIdHolder() const { return keyId_; }
    TrackedValue<std::uint16_t>& usageHolder() { return usage_; }
    const TrackedValue<std::uint16_t>& usageHolder() const { return usage_; }
    TrackedValue<bool>& nativeHolder() { return native_; }
    const TrackedValue<bool>& nativeHolder() const { return native_; }
    OptionalValue<std::uint8_t>& accessFlagsHolder() { return accessFlags_; }
    const OptionalValue<std::uint8_t>& accessFlagsHolder() const { return accessFlags_; }
    OptionalValue<std::string>& startDateHolder() { return startDate_; }
    const OptionalValue<std::string>& startDateHolder() const { return startDate_; }
    OptionalValue<std::string>& endDateHolder() { return endDate_; }
    const OptionalValue<std::string>& endDateHolder() const { return endDate_; }
    OptionalValue<std::vector<std::uint32_t>>& algorithmReferencesHolder() {
        return algorithmReferences_;
    }
    const OptionalValue<std::vector<std::uint32_t>>& algorithmReferencesHolder() const {
        return algorithmReferences_;
    }

    bool isTouched() const override;
    void clearTouched() const override;

protected:
    TrackedValue<mw::ByteBuffer> keyId_;
    TrackedValue<std::uint16_t> usage_;
    TrackedValue<bool> native_{true};
    OptionalValue<std::uint8_t> accessFlags_;
    OptionalValue<std::string> startDate_;
    OptionalValue<std::string> endDate_;
    OptionalValue<std::vector<std::uint32_t>> algorithmReferences_;
};

} // namespace object
} // namespace app

#endif
