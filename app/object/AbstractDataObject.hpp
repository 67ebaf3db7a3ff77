#ifndef APP_OBJECT_ABSTRACTDATAOBJECT_HPP
#define APP_OBJECT_ABSTRACTDATAOBJECT_HPP

#include "app/object/AbstractCardObject.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/StoredValue.hpp"

namespace app {
namespace object {

// The attribute values and the value of a data object.
class AbstractDataObject : public virtual IDataObject, public virtual AbstractCardObject {
public:
    const boost::optional<std::string>& getApplicationName() const override {
        return applicationName_.get();
    }
    void setApplicationName(const std::string& name) override { applicationName_.set(name); }
    const boost::optional<mw::ByteBuffer>& getApplicationOid() const override {
        return applicationOid_.get();
    }
    void setApplicationOid(const mw::ByteBuffer& oid) override { applicationOid_.set(oid); }
    const mw::ByteBuffer& getValue() const override { return value_.get(); }
    void setValue(const mw::ByteBuffer& value) override { value_.set(value); }

    OptionalValue<std::string>& applicationNameHolder() { return applicationName_; }
    const OptionalValue<std::string>& applicationNameHolder() const { return applicationName_; }
    OptionalValue<mw::ByteBuffer>& applicationOidHolder() { return applicationOid_; }
    const OptionalValue<mw::ByteBuffer>& applicationOidHolder() const { return applicationOid_; }
    const StoredValue& valueHolder() const { return value_; }

    bool isTouched() const override {
        return AbstractCardObject::isTouched() || applicationName_.isTouched() ||
               applicationOid_.isTouched();
    }
    void clearTouched() const override {
        AbstractCardObject::clearTouched();
        applicationName_.clearTouched();
        applicationOid_.clearTouched();
    }

protected:
    OptionalValue<std::string> applicationName_;
    OptionalValue<mw::ByteBuffer> applicationOid_;
    StoredValue value_;
};

} // namespace object
} // namespace app

#endif
