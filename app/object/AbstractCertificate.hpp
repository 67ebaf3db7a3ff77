#ifndef APP_OBJECT_ABSTRACTCERTIFICATE_HPP
#define APP_OBJECT_ABSTRACTCERTIFICATE_HPP

#include "app/object/AbstractCardObject.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/StoredValue.hpp"
#include "app/object/TrackedValue.hpp"

namespace app {
namespace object {

// The attribute values and the value of a certificate.
class AbstractCertificate : public virtual ICertificate, public virtual AbstractCardObject {
public:
    const mw::ByteBuffer& getCertificateId() const override { return certificateId_.get(); }
    void setCertificateId(const mw::ByteBuffer& id) override { certificateId_.set(id); }
    const bool& getAuthority() const override { return authority_.get(); }
    void setAuthority(bool authority) override { authority_.set(authority); }
    const boost::optional<std::uint16_t>& getKeyUsage() const override { return keyUsage_.get(); }
    void setKeyUsage(std::uint16_t usage) override { keyUsage_.set(usage); }
    const mw::ByteBuffer& getValue() const override { return value_.get(); }
    void setValue(const mw::ByteBuffer& value) override { value_.set(value); }

    // The holders themselves, for the code that decodes and encodes entries.
    TrackedValue<mw::ByteBuffer>& certificateIdHolder() { return certificateId_; }
    const TrackedValue<mw::ByteBuffer>& certificateIdHolder() const { return certificateId_; }
    TrackedValue<bool>& authorityHolder() { return authority_; }
    const TrackedValue<bool>& authorityHolder() const { return authority_; }
    OptionalValue<std::uint16_t>& keyUsageHolder() { return keyUsage_; }
    const OptionalValue<std::uint16_t>& keyUsageHolder() const { return keyUsage_; }
    const StoredValue& valueHolder() const { return value_; }

    bool isTouched() const override {
        return AbstractCardObject::isTouched() || certificateId_.isTouched() ||
               authority_.isTouched() || keyUsage_.isTouched();
    }
    void clearTouched() const override {
        AbstractCardObject::clearTouched();
        certificateId_.clearTouched();
        authority_.clearTouched();
        keyUsage_.clearTouched();
    }

protected:
    TrackedValue<mw::ByteBuffer> certificateId_;
    TrackedValue<bool> authority_;
    OptionalValue<std::uint16_t> keyUsage_;
    StoredValue value_;
};

} // namespace object
} // namespace app

#endif
