// PIN values never reach the trace. This binary turns tracing on for
// itself, into a file of its own, before anything is traced.
#include "CardFixture.hpp"

#include "app/object/IPin.hpp"
#include "app/pkcs15/P15Application.hpp"

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

const std::string tracePath = "/tmp/p15-pin-trace-" + std::to_string(getpid()) + ".log";
const bool tracing = setenv("P15_TRACE", tracePath.c_str(), 1) == 0;

using hosttest::text;

std::string hex(const std::string& value) {
    std::ostringstream out;
    for (unsigned char c : value) {
        out << std::hex << std::uppercase << static_cast<int>(c);
    }
    return out.str();
}

class PinTrace : public hosttest::CardTest {
protected:
    void TearDown() override { std::remove(tracePath.c_str()); }
};

TEST_P(PinTrace, NamesThePinOperationsButNeverTheirValues) {
    ASSERT_TRUE(tracing);
    const auto application = boost::make_shared<app::pkcs15::P15Application>(
        boost::shared_ptr<const card::ICard>(card_), "test", "");
    const auto user =
        boost::dynamic_pointer_cast<app::object::IPin>(application->getAuthObjects(*channel_)[0]);
    const std::string secrets[] = {hosttest::userPin, "24680", hosttest::puk, "997755"};
    EXPECT_THROW(user->authenticate(*channel_, text(secrets[3])), card::CardException);
    user->unblock(*channel_, text(hosttest::puk));
    user->change(*channel_, text(hosttest::userPin), text("24680"));
    user->authenticate(*channel_, text("24680"));

    std::ifstream file(tracePath);
    const std::string trace((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(trace.find("P15Pin::authenticate"), std::string::npos) << "the trace is on";
    EXPECT_NE(trace.find("P15Pin::change"), std::string::npos);
    for (const std::string& secret : secrets) {
        EXPECT_EQ(trace.find(secret), std::string::npos) << secret;
        EXPECT_EQ(trace.find(hex(secret)), std::string::npos) << hex(secret);
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, PinTrace,
                         ::testing::Values(hosttest::TransportKind::InProcess),
                         hosttest::transportName);

} // namespace
