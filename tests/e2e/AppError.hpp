#ifndef TESTS_E2E_APPERROR_HPP
#define TESTS_E2E_APPERROR_HPP

#include "app/ApplicationException.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

// Runs `statement`, expects an application exception carrying `text`.
#define EXPECT_APP_ERROR(statement, text)                                                          \
    try {                                                                                          \
        statement;                                                                                 \
        ADD_FAILURE() << "no application exception from " #statement;                              \
    } catch (const app::ApplicationException& e) {                                                 \
        const char* const* attached = boost::get_error_info<app::ErrorText>(e);                    \
        EXPECT_STREQ(attached ? *attached : "", text);                                             \
    }

#endif
