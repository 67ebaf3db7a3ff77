#ifndef APP_OBJECT_SUBJECTKEY_HPP
#define APP_OBJECT_SUBJECTKEY_HPP

#include "app/object/AbstractKey.hpp"

namespace app {
namespace object {

// The subject name that private and public keys (the `KeyInterface`) add to
// the attributes of every key.
template <class KeyInterface>
class SubjectKey : public virtual KeyInterface, public virtual AbstractKey {
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
