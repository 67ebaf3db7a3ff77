#ifndef TESTS_SUPPORT_APPERRORS_HPP
#define TESTS_SUPPORT_APPERRORS_HPP

#include "app/ApplicationException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace p15test {

// The exact family of an application exception, so that a test naming
// ApplicationException does not pass on an InvalidDataException.
inline std::string familyOf(const app::ApplicationException& e) {
    return dynamic_cast<const app::InvalidDataException*>(&e) ? "InvalidDataException"
           : dynamic_cast<const app::OperationNotSupportedException*>(&e)
               ? "OperationNotSupportedException"
           : dynamic_cast<const app::OutOfMemoryException*>(&e) ? "OutOfMemoryException"
                                                                : "ApplicationException";
}

// The text attached to an application exception, "" when none.
inline std::string errorText(const app::ApplicationException& e) {
    const char* const* text = boost::get_error_info<app::ErrorText>(e);
    return text ? *text : "";
}

// The text and data (~0u when none) of the exception of type E that `call`
// throws.
using Failure = std::pair<std::string, unsigned>;
template <class E = app::ApplicationException> Failure appError(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        const unsigned* data = boost::get_error_info<app::ErrorData>(e);
        return {errorText(e), data ? *data : ~0u};
    }
    return {"no exception", 0};
}

} // namespace p15test

// Runs `statement`, expects an application exception carrying `text`.
#define EXPECT_APP_TEXT(statement, text)                                                           \
    EXPECT_EQ(p15test::appError([&] { statement; }).first, text) << #statement

// A family as the test names it, without its namespace.
#define P15TEST_FAMILY_NAME(Family) std::string(#Family).substr(std::string(#Family).rfind(':') + 1)

#endif
