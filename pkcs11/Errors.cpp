#include "pkcs11/Errors.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IPin.hpp"
#include "card/CardException.hpp"
#include "host/CardStatus.hpp"
#include "host/ErrorMessage.hpp"
#include "mw/Log.hpp"

#include <boost/exception/get_error_info.hpp>
#include <cstring>
#include <new>

namespace pkcs11 {

namespace {

CK_RV returnValueOfFault(host::CardFault fault) {
    using host::CardFault;
    switch (fault) {
    case CardFault::WrongPin:
        return CKR_PIN_INCORRECT;
    case CardFault::PinBlocked:
        return CKR_PIN_LOCKED;
    case CardFault::NotAuthenticated:
        return CKR_USER_NOT_LOGGED_IN;
    case CardFault::NoMemory:
        return CKR_DEVICE_MEMORY;
    case CardFault::BadCryptogram:
        return CKR_ENCRYPTED_DATA_INVALID;
    case CardFault::DataTooLong:
        return CKR_DATA_LEN_RANGE;
    case CardFault::NotUsable: // a key or algorithm the card cannot use: no closer value
    case CardFault::Other:
        break;
    }
    return CKR_DEVICE_ERROR;
}

// Each rule gives the return value for the exceptions it knows, CKR_OK
// for the others.
using ExceptionRule = CK_RV (*)(const std::exception&);

CK_RV cardGone(const std::exception& error) {
    return isCardGone(error) ? CKR_DEVICE_REMOVED : CKR_OK;
}

CK_RV cardStatus(const std::exception& error) {
    const auto* info = dynamic_cast<const boost::exception*>(&error);
    const unsigned short* sw = info ? boost::get_error_info<card::StatusCode>(*info) : nullptr;
    if (!sw) {
        return CKR_OK;
    }
    const char* const* command = boost::get_error_info<card::Command>(*info);
    return returnValueOfFault(host::cardStatusOf(command ? *command : nullptr, *sw).fault);
}

CK_RV refusedPin(const std::exception& error) {
    const auto* pin = dynamic_cast<const app::object::InvalidPinException*>(&error);
    if (!pin) {
        return CKR_OK;
    }
    return pin->fault() == pin->NotDigits ? CKR_PIN_INVALID : CKR_PIN_LEN_RANGE;
}

template <class Type, CK_RV rv> CK_RV ofType(const std::exception& error) {
    return dynamic_cast<const Type*>(&error) ? rv : CKR_OK;
}

// In order: the first rule that knows the exception gives its return value.
constexpr ExceptionRule exceptionRules[] = {
    cardGone,
    cardStatus,
    refusedPin,
    ofType<std::bad_alloc, CKR_HOST_MEMORY>,
    ofType<app::OutOfMemoryException, CKR_DEVICE_MEMORY>,
    ofType<app::OperationNotSupportedException, CKR_FUNCTION_NOT_SUPPORTED>,
    // Another program held the card for longer than the module waits: the
    // card is sound, the call may be repeated.
    ofType<card::CardInUseException, CKR_FUNCTION_FAILED>,
    // Malformed card data, an answer that does not end, any other refusal:
    // the device is at fault.
    ofType<card::CardException, CKR_DEVICE_ERROR>,
    ofType<app::ApplicationException, CKR_DEVICE_ERROR>,
};

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
    for (const ExceptionRule rule : exceptionRules) {
        if (const CK_RV rv = rule(error)) {
            return rv;
        }
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
