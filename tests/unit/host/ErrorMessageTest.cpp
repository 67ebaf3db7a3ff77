#include "host/ErrorMessage.hpp"

#include "app/ApplicationException.hpp"
#include "card/CardException.hpp"
#include "host/CardStatus.hpp"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

template <class Throw> std::string messageOf(Throw raise) {
    try {
        raise();
    } catch (const std::exception& e) {
        return host::errorMessage(e);
    }
    return "nothing thrown";
}

TEST(ErrorMessage, NamesCommandStatusWordTextAndNumber) {
    const auto cardError = [](const char* command, unsigned short sw) {
        return [=] {
            CARD_THROW(card::CardException() << card::Command(command) << card::StatusCode(sw));
        };
    };
    EXPECT_EQ(messageOf(cardError("Select", 0x6A82)),
              "card exception: Select: 6A82 (File or application not found)");
    EXPECT_EQ(messageOf(cardError("Verify", 0x63C2)), "card exception: Verify: 63C2 (wrong PIN)");
    EXPECT_EQ(messageOf(cardError("Put Data", 0x6F42)),
              "card exception: Put Data: 6F42 (unknown error)");
    EXPECT_EQ(
        messageOf([] { CARD_THROW(card::CardException() << card::ErrorText("card removed")); }),
        "card exception: card removed");
    EXPECT_EQ(
        messageOf([] { APP_THROW_DATA(app::InvalidDataException, "invalid modulus size", 4096); }),
        "invalid data exception: invalid modulus size (4096)");
    EXPECT_EQ(messageOf([] { throw std::runtime_error("no card in Virtual PCD 00 00"); }),
              "no card in Virtual PCD 00 00");
}

} // namespace
