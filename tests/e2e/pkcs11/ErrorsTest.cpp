// The module's table from failures to return values, row by row, with each
// exception thrown as the card layer or the application throws it.
#include "pkcs11/Errors.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IPin.hpp"
#include "card/CardException.hpp"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using app::object::InvalidPinException;

template <class E> CK_RV returnValueOfThrown(E e) {
    try {
        BOOST_THROW_EXCEPTION(e);
    } catch (const std::exception& error) {
        return pkcs11::returnValueOf(error);
    }
}

TEST(ReturnValueTable, AStatusWordMeansWhatItMeansForItsCommand) {
    const struct {
        const char* command;
        unsigned short sw;
        CK_RV expected;
    } rows[] = {
        {"Verify", 0x63C2, CKR_PIN_INCORRECT},
        {"Change Reference Data", 0x63C0, CKR_PIN_INCORRECT},
        {"Reset Retry Counter", 0x6983, CKR_PIN_LOCKED},
        {"Verify", 0x6984, CKR_PIN_LOCKED},
        {"Compute Digital Signature", 0x63C1, CKR_DEVICE_ERROR},
        {"Decipher", 0x6983, CKR_DEVICE_ERROR},
        {nullptr, 0x63C1, CKR_DEVICE_ERROR},
        {"Decipher", 0x6A80, CKR_ENCRYPTED_DATA_INVALID},
        {"Compute Digital Signature", 0x6A80, CKR_DATA_LEN_RANGE},
        {"Update Binary", 0x6A80, CKR_DEVICE_ERROR},
        {"Read Binary", 0x6982, CKR_USER_NOT_LOGGED_IN},
        {"Create File", 0x6A84, CKR_DEVICE_MEMORY},
        {"Select", 0x6A82, CKR_DEVICE_ERROR},
    };
    for (const auto& row : rows) {
        card::CardException refusal;
        refusal << card::StatusCode(row.sw);
        if (row.command) {
            refusal << card::Command(row.command);
        }
        EXPECT_EQ(returnValueOfThrown(refusal), row.expected)
            << (row.command ? row.command : "no command") << " " << std::hex << row.sw;
    }
}

TEST(ReturnValueTable, EachOtherFailureHasItsPreciseCode) {
    const auto pin = [](InvalidPinException::Fault fault) {
        return InvalidPinException(fault, InvalidPinException::Current, 3, 4, 8, true);
    };
    EXPECT_EQ(returnValueOfThrown(card::CardException() << card::ErrorText("card removed")),
              CKR_DEVICE_REMOVED);
    EXPECT_EQ(returnValueOfThrown(card::InvalidDataException()
                                  << card::Command("Get Response") << card::ErrorText("no end")),
              CKR_DEVICE_ERROR);
    EXPECT_EQ(returnValueOfThrown(card::CardInUseException()), CKR_FUNCTION_FAILED);
    EXPECT_EQ(returnValueOfThrown(app::OutOfMemoryException()
                                  << app::ErrorText("EF(DODF) out of memory")),
              CKR_DEVICE_MEMORY);
    EXPECT_EQ(returnValueOfThrown(pin(InvalidPinException::NotDigits)), CKR_PIN_INVALID);
    EXPECT_EQ(returnValueOfThrown(pin(InvalidPinException::TooShort)), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(returnValueOfThrown(app::OperationNotSupportedException()),
              CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(returnValueOfThrown(app::InvalidDataException()), CKR_DEVICE_ERROR);
    EXPECT_EQ(pkcs11::returnValueOf(std::bad_alloc()), CKR_HOST_MEMORY);
    EXPECT_EQ(pkcs11::returnValueOf(std::runtime_error("?")), CKR_GENERAL_ERROR);
}

} // namespace
