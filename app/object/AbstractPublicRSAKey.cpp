#include "app/object/AbstractPublicRSAKey.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/AbstractPrivateRSAKey.hpp"

namespace app {
namespace object {

void AbstractPublicRSAKey::setModulusLength(std::uint16_t bits) {
    if (!isSupportedModulusSize(bits)) {
        APP_THROW_DATA(InvalidDataException, "invalid modulus size", bits);
    }
    modulusLength_.set(bits);
}

// The size is the buffer's, not the value's: a 255-byte modulus is no
// 2048-bit key even when its value has 2040 significant bits.
void AbstractPublicRSAKey::setModulus(const mw::ByteBuffer& modulus) {
    const std::size_t bits = modulus.size() * 8;
    if (!isSupportedModulusSize(static_cast<unsigned int>(bits))) {
        APP_THROW_DATA(InvalidDataException, "invalid modulus size", bits);
    }
    modulus_.set(modulus);
}

bool AbstractPublicRSAKey::isTouched() const {
    return AbstractPublicKey::isTouched() || modulusLength_.isTouched() || isKeyMaterialTouched() ||
           keyValueReference_.isTouched();
}

void AbstractPublicRSAKey::clearTouched() const {
    AbstractPublicKey::clearTouched();
    modulusLength_.clearTouched();
    modulus_.clearTouched();
    publicExponent_.clearTouched();
    keyValueReference_.clearTouched();
}

} // namespace object
} // namespace app
