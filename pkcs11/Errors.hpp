#ifndef PKCS11_ERRORS_HPP
#define PKCS11_ERRORS_HPP

#include "pkcs11/Cryptoki.hpp"

#include <exception>
#include <string>

namespace pkcs11 {

// A call ends with this return value; thrown from wherever the reason is
// found, turned into the return value at the module's edge.
class Failure : public std::exception {
public:
    explicit Failure(CK_RV rv, std::string reason = {})
        : rv_(rv)
        , reason_(std::move(reason)) {}
    CK_RV rv() const { return rv_; }
    const char* what() const noexcept override { return reason_.c_str(); }

private:
    CK_RV rv_;
    std::string reason_;
};

/// The return value for an exception from the plugin, the card layer or the
/// standard library, by one table (Errors.cpp): a card's status word by
/// what it means for the command that got it (host/CardStatus.hpp), a PIN value
/// the PIN cannot take CKR_PIN_LEN_RANGE or CKR_PIN_INVALID, a full
/// directory file CKR_DEVICE_MEMORY, a removed card CKR_DEVICE_REMOVED,
/// malformed card data CKR_DEVICE_ERROR, anything unknown CKR_GENERAL_ERROR.
CK_RV returnValueOf(const std::exception& error);

// True when the exception says the card or its reader is gone.
bool isCardGone(const std::exception& error);

// Runs a call's body; whatever it throws becomes a return value, and the
// reason goes to the trace.
template <class Body> CK_RV guarded(const char* function, Body&& body) noexcept;

void traceFailure(const char* function, const std::exception& error) noexcept;

template <class Body> CK_RV guarded(const char* function, Body&& body) noexcept {
    try {
        return body();
    } catch (const Failure& failure) {
        traceFailure(function, failure);
        return failure.rv();
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    } catch (const std::exception& error) {
        traceFailure(function, error);
        return returnValueOf(error);
    } catch (...) {
        return CKR_GENERAL_ERROR;
    }
}

} // namespace pkcs11

#endif
