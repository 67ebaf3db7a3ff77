#include "app/object/AbstractApplicationInfo.hpp"

namespace app {
namespace object {

AbstractApplicationInfo::AbstractApplicationInfo() {
    label_.load(std::string("Arvel PKCS15 Application"));
    supportedAlgorithms_.load(std::vector<std::string>{"1.2.840.113549.1.1.1"});
}

bool AbstractApplicationInfo::isTouched() const {
    return AbstractCardObject::isTouched() || version_.isTouched() || serialNumber_.isTouched() ||
           manufacturerId_.isTouched() || tokenFlags_.isTouched() ||
           supportedAlgorithms_.isTouched() || issuerId_.isTouched() || holderId_.isTouched() ||
           lastUpdate_.isTouched() || preferredLanguage_.isTouched();
}

void AbstractApplicationInfo::clearTouched() const {
    AbstractCardObject::clearTouched();
    version_.clearTouched();
    serialNumber_.clearTouched();
    manufacturerId_.clearTouched();
    tokenFlags_.clearTouched();
    supportedAlgorithms_.clearTouched();
    issuerId_.clearTouched();
    holderId_.clearTouched();
    lastUpdate_.clearTouched();
    preferredLanguage_.clearTouched();
}

} // namespace object
} // namespace app
