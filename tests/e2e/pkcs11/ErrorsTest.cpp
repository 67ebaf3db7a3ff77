// The module's table from failures to return values, each exception thrown as the card layer or
// the application throws it: every row of the status word and exception rules, and their order.
#include "pkcs11/Errors.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IPin.hpp"
#include "card/CardException.hpp"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using app::object::InvalidPinException;

template <class E> std::exception_ptr thrown(E e) {
    try {
        BOOST_THROW_EXCEPTION(e);
    } catch (...) {
        return std::current_exception();
    }
}

std::exception_ptr refusal(const char* command, unsigned short sw) {
    return thrown(card::CardException() << card::Command(command) << card::StatusCode(sw));
}

std::exception_ptr refusedPin(InvalidPinException::Fault fault) {
    return thrown(InvalidPinException(fault, InvalidPinException::Current, 3, 4, 8, true));
}
std::exception_ptr failed(const char* text) {
    return thrown(card::CardException() << card::ErrorText(text));
}

TEST(ReturnValueTable, EachFailureHasItsPreciseCode) {
    // clang-format off
    const std::pair<std::exception_ptr, CK_RV> rows[] = {
        {refusal("Verify", 0x63C2), CKR_PIN_INCORRECT},
        {refusal("Change Reference Data", 0x63C0), CKR_PIN_INCORRECT},
        {refusal("Reset Retry Counter", 0x6983), CKR_PIN_LOCKED},
        {refusal("Verify", 0x6984), CKR_PIN_LOCKED},
        {refusal("Verify", 0x6300), CKR_PIN_INCORRECT},                     // tries left untold
        {refusal("Manage Security Environment", 0x6984), CKR_DEVICE_ERROR}, // no PIN involved
        {refusal("Compute Digital Signature", 0x63C1), CKR_DEVICE_ERROR},   // not a PIN command
        {refusal("Decipher", 0x6983), CKR_DEVICE_ERROR},
        {thrown(card::CardException() << card::StatusCode(0x63C1)), CKR_DEVICE_ERROR},
        {refusal("Decipher", 0x6A80), CKR_ENCRYPTED_DATA_INVALID},
        {refusal("Compute Digital Signature", 0x6A80), CKR_DATA_LEN_RANGE},
        {refusal("Update Binary", 0x6A80), CKR_DEVICE_ERROR},
        {refusal("Read Binary", 0x6982), CKR_USER_NOT_LOGGED_IN},
        {refusal("Create File", 0x6A84), CKR_DEVICE_MEMORY},
        {refusal("Select", 0x6A82), CKR_DEVICE_ERROR},
        {failed("card removed"), CKR_DEVICE_REMOVED},
        {failed("reader unavailable: Virtual PCD"), CKR_DEVICE_REMOVED},
        {failed("PC/SC service stopped or restarted"), CKR_DEVICE_REMOVED},
        // A card gone in the middle of a command: its status word tells nothing.
        {thrown(card::CardException() << card::ErrorText("card removed") << card::Command("Verify") << card::StatusCode(0x63C1)), CKR_DEVICE_REMOVED},
        {failed("card reset by another application"), CKR_DEVICE_ERROR},
        {thrown(card::InvalidDataException() << card::ErrorText("no end")), CKR_DEVICE_ERROR},
        {thrown(card::CardInUseException()), CKR_FUNCTION_FAILED},
        {thrown(app::OutOfMemoryException() << app::ErrorText("EF(DODF) out of memory")), CKR_DEVICE_MEMORY},
        {refusedPin(InvalidPinException::NotDigits), CKR_PIN_INVALID},
        {refusedPin(InvalidPinException::TooShort), CKR_PIN_LEN_RANGE},
        {thrown(app::OperationNotSupportedException()), CKR_FUNCTION_NOT_SUPPORTED},
        {thrown(app::InvalidDataException()), CKR_DEVICE_ERROR},
        {std::make_exception_ptr(std::bad_alloc()), CKR_HOST_MEMORY},
        {std::make_exception_ptr(std::runtime_error("?")), CKR_GENERAL_ERROR},
    };
    // clang-format on
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        try {
            std::rethrow_exception(rows[row].first);
        } catch (const std::exception& error) {
            EXPECT_EQ(pkcs11::returnValueOf(error), rows[row].second) << "row " << row;
        }
    }
}

} // namespace
