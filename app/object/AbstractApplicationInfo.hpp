#ifndef APP_OBJECT_ABSTRACTAPPLICATIONINFO_HPP
#define APP_OBJECT_ABSTRACTAPPLICATIONINFO_HPP

#include "app/object/AbstractCardObject.hpp"
#include "app/object/IApplicationInfo.hpp"
#include "app/object/TrackedValue.hpp"

namespace app {
namespace object {

// The token information of an application, held in memory until written.
// A new one has the default label and lists RSA as its only algorithm,
// neither marked as set.
class AbstractApplicationInfo : public virtual IApplicationInfo, public virtual AbstractCardObject {
public:
    AbstractApplicationInfo();

    const std::int32_t& getVersion() const override { return version_.get(); }
    void setVersion(std::int32_t version) override { version_.set(version); }
    const boost::optional<mw::ByteBuffer>& getSerialNumber() const override {
        return serialNumber_.get();
    }
    void setSerialNumber(const mw::ByteBuffer& serialNumber) override {
        serialNumber_.set(serialNumber);
    }
    const boost::optional<std::string>& getManufacturerId() const override {
        return manufacturerId_.get();
    }
    void setManufacturerId(const std::string& id) override { manufacturerId_.set(id); }
    const std::uint8_t& getTokenFlags() const override { return tokenFlags_.get(); }
    void setTokenFlags(std::uint8_t flags) override { tokenFlags_.set(flags); }
    const boost::optional<std::vector<std::string>>& getSupportedAlgorithms() const override {
        return supportedAlgorithms_.get();
    }
    void setSupportedAlgorithms(const std::vector<std::string>& algorithms) override {
        supportedAlgorithms_.set(algorithms);
    }
    const boost::optional<std::string>& getIssuerId() const override { return issuerId_.get(); }
    void setIssuerId(const std::string& id) override { issuerId_.set(id); }
    const boost::optional<std::string>& getHolderId() const override { return holderId_.get(); }
    void setHolderId(const std::string& id) override { holderId_.set(id); }
    const boost::optional<std::string>& getLastUpdate() const override { return lastUpdate_.get(); }
    void setLastUpdate(const std::string& time) override { lastUpdate_.set(time); }
    const boost::optional<std::string>& getPreferredLanguage() const override {
        return preferredLanguage_.get();
    }
    void setPreferredLanguage(const std::string& language) override {
        preferredLanguage_.set(language);
    }

    bool isTouched() const override;
    void clearTouched() const override;

protected:
    TrackedValue<std::int32_t> version_;
    OptionalValue<mw::ByteBuffer> serialNumber_;
    OptionalValue<std::string> manufacturerId_;
    TrackedValue<std::uint8_t> tokenFlags_;
    OptionalValue<std::vector<std::string>> supportedAlgorithms_;
    OptionalValue<std::string> issuerId_;
    OptionalValue<std::string> holderId_;
    OptionalValue<std::string> lastUpdate_;
    OptionalValue<std::string> preferredLanguage_;
};

} // namespace object
} // namespace app

#endif
