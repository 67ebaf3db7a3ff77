#include "app/object/AbstractPin.hpp"

namespace app {
namespace object {

bool AbstractPin::isTouched() const {
    return AbstractAuthenticationObject::isTouched() || pinFlags_.isTouched() ||
           pinType_.isTouched() || minLength_.isTouched() || storedLength_.isTouched() ||
           maxLength_.isTouched() || pinReference_.isTouched() || padChar_.isTouched() ||
           path_.isTouched();
}

void AbstractPin::clearTouched() const {
    AbstractAuthenticationObject::clearTouched();
    pinFlags_.clearTouched();
    pinType_.clearTouched();
    minLength_.clearTouched();
    storedLength_.clearTouched();
    maxLength_.clearTouched();
    pinReference_.clearTouched();
    padChar_.clearTouched();
    path_.clearTouched();
}

} // namespace object
} // namespace app
