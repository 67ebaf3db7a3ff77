// PIN values never reach the trace. This binary turns tracing on for
// itself, into a file of its own, before anything is traced.
#include "AppOnCard.hpp"

#include "app/object/IPin.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"
#include "vcard/Personalise.hpp"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

const std::string tracePath = "/tmp/p15-pin-trace-" + std::to_string(getpid()) + ".log";
const bool tracing = setenv("P15_TRACE", tracePath.c_str(), 1) == 0;

using support::ascii;

TEST(PinTrace, NamesThePinOperationsButNeverTheirValues) {
    ASSERT_TRUE(tracing);
    const support::AppOnCard card(vcard::personalise());
    const card::IChannel& channel = *card.channel;
    const auto application = card.open();
    const auto user = support::pinAt(*application, channel);
    const std::string secrets[] = {support::userPin, "24680", support::puk, "997755"};
    EXPECT_THROW(user->authenticate(channel, ascii(secrets[3])), card::CardException);
    user->unblock(channel, ascii(support::puk));
    user->change(channel, ascii(support::userPin), ascii("24680"));
    user->authenticate(channel, ascii("24680"));

    std::ifstream file(tracePath);
    const std::string trace((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(trace.find("P15Pin::authenticate"), std::string::npos) << "the trace is on";
    EXPECT_NE(trace.find("P15Pin::change"), std::string::npos);
    for (const std::string& secret : secrets) {
        EXPECT_EQ(trace.find(secret), std::string::npos) << secret;
        EXPECT_EQ(trace.find(mw::toHex(ascii(secret))), std::string::npos) << secret;
    }
    std::remove(tracePath.c_str());
}

} // namespace
