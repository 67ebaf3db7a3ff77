#include "card/CardException.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string diagnosticOf(unsigned short sw) {
    try {
        CARD_THROW(card::CardException() << card::Command("Select") << card::StatusCode(sw));
    } catch (const card::CardException& e) {
        return boost::diagnostic_information(e);
    }
}

} // namespace

// The throw site, the command and the status word's table text alone, framed
// like every other tag (the plugin boundary test sees the same across dlopen).
TEST(Exceptions, DiagnosticTextShowsSiteCommandAndStatusText) {
    const std::string text = diagnosticOf(0x6A82);
    EXPECT_NE(text.find("CardExceptionTest.cpp"), std::string::npos) << text;
    EXPECT_NE(text.find("diagnosticOf"), std::string::npos) << text;
    EXPECT_NE(text.find("[card::tag_command*] = Select\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[card::tag_status_code*] = File or application not found\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("6A82"), std::string::npos) << text;
}

// Families (61xx, 63Cx, 6Cxx), success, neighbours of listed words and the
// ends of the range have no text of their own.
TEST(StatusText, OnlyExactValuesMap) {
    for (unsigned short sw : {0x6A8B, 0x6A8F, 0x9000, 0x6100, 0x61FF, 0x63C2, 0x6C10, 0x6280,
                              0x6A00, 0x6F01, 0x0000, 0xFFFF}) {
        EXPECT_STREQ(card::statusText(sw), "unknown error") << std::hex << sw;
    }
}
