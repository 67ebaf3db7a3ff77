#include "app/object/AbstractKey.hpp"

namespace app {
namespace object {

bool AbstractKey::isTouched() const {
    return AbstractCardObject::isTouched() || keyId_.isTouched() || usage_.isTouched() ||
           native_.isTouched() || accessFlags_.isTouched() || startDate_.isTouched() ||
           endDate_.isTouched() || algorithmReferences_.isTouched();
}

void AbstractKey::clearTouched() const {
    AbstractCardObject::clearTouched();
    keyId_.clearTouched();
    usage_.clearTouched();
    native_.clearTouched();
    accessFlags_.clearTouched();
    startDate_.clearTouched();
    endDate_.clearTouched();
    algorithmReferences_.clearTouched();
}

} // namespace object
} // namespace app
