#include "card/CardException.hpp"

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

} // namespace

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
