#ifndef APP_PKCS15_OBJECT_ABSTRACTP15KEY_HPP
#define APP_PKCS15_OBJECT_ABSTRACTP15KEY_HPP

#include "app/pkcs15/object/AbstractP15Object.hpp"
#include "card/service/KeyRef.hpp"

#include <utility>

namespace app {
namespace pkcs15 {
namespace object {

// A PKCS#15 key: a directory entry plus a key the card holds under a
// reference. The key classes answer IKey::getKeyReference from here.
class AbstractP15Key : public AbstractP15Object {
protected:
    const card::service::KeyRef& p15KeyReference() const { return keyRef_; }
    void setP15KeyReference(card::service::KeyRef keyRef) const { keyRef_ = std::move(keyRef); }

private:
    // Set when a write gives a new key its reference.
    mutable card::service::KeyRef keyRef_;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
