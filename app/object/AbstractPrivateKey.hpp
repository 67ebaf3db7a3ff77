#ifndef APP_OBJECT_ABSTRACTPRIVATEKEY_HPP
#define APP_OBJECT_ABSTRACTPRIVATEKEY_HPP

#include "app/object/AbstractKey.hpp"
#include "app/object/IPrivateKey.hpp"

namespace app {
namespace object {

class AbstractPrivateKey : public virtual IPrivateKey, public virtual AbstractKey {
public:
    const boost::optional<mw::ByteBuffer>& getSubjectName() const override {
        return subjectName_.get();
    }
    void setSubjectName(const mw::ByteBuffer& name) override { subjectName_.set(name); }

    bool isTouched() const override { return AbstractKey::isTouched() || subjectName_.isTouched(); }
    void clearTouched() const override {
        AbstractKey::clearTouched();
        subjectName_.clearTouched();
    }

protected:
    OptionalValue<mw::ByteBuffer> subjectName_;
};

} // namespace object
} // namespace app

#endif
