#ifndef TESTS_E2E_APPERROR_HPP
#define TESTS_E2E_APPERROR_HPP

#include "AppErrors.hpp"

#include <gtest/gtest.h>

// Runs `statement`, expects an application exception carrying `text`.
#define EXPECT_APP_ERROR(statement, text)                                                          \
    EXPECT_EQ(p15test::appError([&] { statement; }).first, text) << #statement

#endif
