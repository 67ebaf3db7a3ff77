#include "pkcs11/Errors.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IPin.hpp"
#include "card/CardException.hpp"
#include "host/ErrorMessage.hpp"
#include "mw/Log.hpp"

#include <boost/exception/get_error_info.hpp>
#include <cstring>

namespace pkcs11 {

namespace {

CK_RV returnValueOfStatus(unsigned short sw) {
    if ((sw & 0xFFF0) == 0x63C0) {
        return CKR_PIN_INCORRECT;
    }
    switch (sw) {
    case 0x6983:
    case 0x6984:
        return CKR_PIN_LOCKED;
    case 0x6982:
        return CKR_USER_NOT_LOGGED_IN;
    case 0x6A84:
        return CKR_DEVICE_MEMORY;
    default:
        return CKR_DEVICE_ERROR;
    }
}

} // namespace

bool isCardGone(const std::exception& error) {
    const auto* info = dynamic_cast<const boost::exception*>(&error);
    if (!info || !dynamic_cast<const card::CardException*>(&error)) {
        return false;
    }
    const char* const* text = boost::get_error_info<card::ErrorText>(*info);
    if (!text) {
        return false;
    }
    // A stopped or restarted PC/SC service took every card connection with it.
    for (const char* gone :
         {"card removed", "reader unavailable", "PC/SC service stopped or restarted"}) {
        if (std::strncmp(*text, gone, std::strlen(gone)) == 0) {
            return true;
        }
    }
    return false;
}

CK_RV returnValueOf(const std::exception& error) {
    if (isCardGone(error)) {
        return CKR_DEVICE_REMOVED;
    }
    if (const auto* info = dynamic_cast<const boost::exception*>(&error)) {
        if (const unsigned short* sw = boost::get_error_info<card::StatusCode>(*info)) {
            return returnValueOfStatus(*sw);
        }
    }
    if (const auto* pin = dynamic_cast<const app::object::InvalidPinException*>(&error)) {
        return pin->fault() == pin->NotDigits ? CKR_PIN_INVALID : CKR_PIN_LEN_RANGE;
    }
    if (dynamic_cast<const app::OutOfMemoryException*>(&error)) {
        return CKR_DEVICE_MEMORY;
    }
    if (dynamic_cast<const app::OperationNotSupportedException*>(&error)) {
        return CKR_FUNCTION_NOT_SUPPORTED;
    }
    if (dynamic_cast<const card::CardException*>(&error) ||
        dynamic_cast<const app::ApplicationException*>(&error)) {
        return CKR_DEVICE_ERROR;
    }
    return CKR_GENERAL_ERROR;
}

void traceFailure(const char* function, const std::exception& error) noexcept {
    try {
        mw::Log log(typeid(Failure), function);
        log.addParamOut("failed: ", host::errorMessage(error));
    } catch (...) {
        // The trace is best effort; the return value already says what failed.
    }
}

} // namespace pkcs11
