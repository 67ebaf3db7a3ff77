#ifndef APP_OBJECT_ABSTRACTAUTHENTICATIONOBJECT_HPP
#define APP_OBJECT_ABSTRACTAUTHENTICATIONOBJECT_HPP

#include "app/object/AbstractCardObject.hpp"
#include "app/object/IAuthenticationObject.hpp"
#include "app/object/TrackedValue.hpp"

namespace app {
namespace object {

class AbstractAuthenticationObject : public virtual IAuthenticationObject,
                                     public virtual AbstractCardObject {
public:
    const mw::ByteBuffer& getAuthId() const override { return authId_.get(); }
    void setAuthId(const mw::ByteBuffer& authId) override { authId_.set(authId); }

    bool isTouched() const override {
        return AbstractCardObject::isTouched() || authId_.isTouched();
    }
    void clearTouched() const override {
        AbstractCardObject::clearTouched();
        authId_.clearTouched();
    }

protected:
    TrackedValue<mw::ByteBuffer> authId_;
};

} // namespace object
} // namespace app

#endif
