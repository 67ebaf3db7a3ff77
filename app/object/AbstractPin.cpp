#include "app/object/AbstractPin.hpp"

#include <algorithm>

namespace app {
namespace object {

namespace {

bool isNumeric(std::uint32_t type) {
    return type == IPin::Bcd || type == IPin::AsciiNumeric || type == IPin::HalfNibbleBcd ||
           type == IPin::Iso9564_1;
}

bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}

} // namespace

// An empty value is never sent: VERIFY without data asks for the state
// instead, and the other commands would present padding alone.
void AbstractPin::checkValue(const mw::ByteBuffer& value, InvalidPinException::Role role) const {
    const std::size_t minimum = std::max<std::size_t>(1, getMinLength());
    const std::size_t maximum = getMaxLength().value_or(getStoredLength());
    const bool digitsOnly = isNumeric(getPinType());
    const auto refuse = [&](InvalidPinException::Fault fault) {
        BOOST_THROW_EXCEPTION(
            InvalidPinException(fault, role, value.size(), minimum, maximum, digitsOnly));
    };
    if (value.size() < minimum) {
        refuse(InvalidPinException::TooShort);
    }
    if (maximum != 0 && value.size() > maximum) {
        refuse(InvalidPinException::TooLong);
    }
    if (digitsOnly && !std::all_of(value.begin(), value.end(), isDigit)) {
        refuse(InvalidPinException::NotDigits);
    }
}

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
