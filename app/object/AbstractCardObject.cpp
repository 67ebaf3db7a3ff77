#include "app/object/AbstractCardObject.hpp"

namespace app {
namespace object {

bool AbstractCardObject::isTouched() const {
    return label_.isTouched() || flags_.isTouched() || protectingAuthId_.isTouched() ||
           accessControlRules_.isTouched();
}

void AbstractCardObject::clearTouched() const {
    label_.clearTouched();
    flags_.clearTouched();
    protectingAuthId_.clearTouched();
    accessControlRules_.clearTouched();
}

} // namespace object
} // namespace app
