#ifndef APP_OBJECT_IAUTHENTICATIONOBJECT_HPP
#define APP_OBJECT_IAUTHENTICATIONOBJECT_HPP

#include "app/object/ICardObject.hpp"
#include "mw/ByteBuffer.hpp"

namespace app {
namespace object {

// Something a user proves (a PIN). Its authId is what other objects name to
// say that it protects them.
class MW_EXPORT_TYPE IAuthenticationObject : public virtual ICardObject {
public:
    virtual const mw::ByteBuffer& getAuthId() const = 0;
    virtual void setAuthId(const mw::ByteBuffer& authId) = 0;
};

} // namespace object
} // namespace app

#endif
