#include "card/CardException.hpp"
#include "app/ApplicationException.hpp"
#include "mw/Exception.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>
#include <gtest/gtest.h>
#include <string>

namespace {

void selectFails(unsigned short sw) {
    CARD_THROW(card::CardException() << card::Command("Select") << card::StatusCode(sw));
}

void contains(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << "missing \"" << part << "\" in:\n" << text;
}

// Whether a handler for `Catch` catches a thrown `Thrown`.
template <class Catch, class Thrown> bool caughtAs() {
    try {
        BOOST_THROW_EXCEPTION(Thrown());
    } catch (const Catch&) {
        return true;
    } catch (...) {
    }
    return false;
}

// Throws an `Exception` with `info` attached and returns what() of it, caught
// as std::exception.
template <class Exception, class Info> std::string whatWithInfo(Info info) {
    try {
        BOOST_THROW_EXCEPTION(Exception() << info);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "not thrown";
}

} // namespace

TEST(Exceptions, WhatIsTheFixedClassTextWhateverIsAttached) {
    EXPECT_EQ(whatWithInfo<card::CardException>(card::ErrorText("x")), "card exception");
    EXPECT_EQ(whatWithInfo<card::InvalidDataException>(card::StatusCode(0x6A82)),
              "invalid data exception");
    EXPECT_EQ(whatWithInfo<app::ApplicationException>(app::ErrorData(7)), "application exception");
    EXPECT_EQ(whatWithInfo<app::InvalidDataException>(app::ErrorText("x")),
              "invalid data exception");
    EXPECT_EQ(whatWithInfo<app::OperationNotSupportedException>(app::ErrorText("x")),
              "operation not supported exception");
    EXPECT_EQ(whatWithInfo<app::OutOfMemoryException>(app::ErrorText("x")),
              "out of memory exception");
}

TEST(Exceptions, FamiliesCatchTheirOwnMembersOnly) {
    EXPECT_TRUE((caughtAs<card::CardException, card::InvalidDataException>()));
    EXPECT_TRUE((caughtAs<app::ApplicationException, app::InvalidDataException>()));
    EXPECT_TRUE((caughtAs<app::ApplicationException, app::OperationNotSupportedException>()));
    EXPECT_TRUE((caughtAs<app::ApplicationException, app::OutOfMemoryException>()));
    EXPECT_FALSE((caughtAs<app::ApplicationException, card::CardException>()));
    EXPECT_FALSE((caughtAs<card::CardException, app::InvalidDataException>()));
    EXPECT_FALSE((caughtAs<card::InvalidDataException, card::CardException>()));
    EXPECT_THROW(MW_THROW(mw::IndexException, "x"), mw::Exception);
}

TEST(Exceptions, CardErrorsAreCloneable) {
    boost::exception_ptr copy;
    try {
        selectFails(0x6982);
    } catch (...) {
        copy = boost::current_exception();
    }
    try {
        boost::rethrow_exception(copy);
    } catch (const card::CardException& e) {
        EXPECT_EQ(*boost::get_error_info<card::StatusCode>(e), 0x6982);
    }
}

TEST(Exceptions, DiagnosticTextShowsSiteCommandAndStatusText) {
    try {
        selectFails(0x6A82);
        FAIL() << "not thrown";
    } catch (const card::CardException& e) {
        EXPECT_STREQ(*boost::get_error_info<card::Command>(e), "Select");
        const std::string text = boost::diagnostic_information(e);
        contains(text, "CardExceptionTest.cpp");
        contains(text, "selectFails");
        contains(text, "[card::tag_command*] = Select\n");
        // The status word's table text alone, framed like every other tag.
        contains(text, "[card::tag_status_code*] = File or application not found\n");
        EXPECT_EQ(text.find("6A82"), std::string::npos) << text;
    }
    try {
        selectFails(0x6A8B);
    } catch (const card::CardException& e) {
        contains(boost::diagnostic_information(e), "[card::tag_status_code*] = unknown error\n");
    }
}

TEST(Exceptions, FoundationTextNamesTheSite) {
    const mw::IllegalArgumentException e("a/b.hpp", "void f()", 12, "bad");
    EXPECT_STREQ(e.what(), "Error in: a/b.hpp (12) void f(), Description: bad");
}
