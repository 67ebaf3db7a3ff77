// PIN management against a real card, in-process and over PC/SC. Every test
// leaves the PINs with their personalised values and full tries.
#include "CardFixture.hpp"

#include "card/CardException.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>

namespace hosttest {
namespace {

using card::service::PinInfo;

class PinServicesTest : public CardTest {
protected:
    PinInfo userPinInfo() const { return pins()->getPinInfo(*channel_, pinReference(0x01)); }
    void expectUserPin(unsigned short state, unsigned short triesLeft) const {
        const PinInfo info = userPinInfo();
        EXPECT_EQ(info.state, state);
        EXPECT_EQ(info.triesLeft, triesLeft);
    }
};

TEST_P(PinServicesTest, WrongPinGives63CxNamingTheCommand) {
    try {
        pins()->authenticate(*channel_, pinReference(0x01), paddedPin("999999"));
        FAIL() << "a wrong PIN was accepted";
    } catch (const card::CardException& e) {
        EXPECT_EQ(statusOf(e), 0x63C2);
        const std::string diagnostic = boost::diagnostic_information(e);
        EXPECT_NE(diagnostic.find("Verify"), std::string::npos) << diagnostic;
    }
    expectUserPin(PinInfo::NotVerified, 2);
    verifyUserPin();
    EXPECT_EQ(userPinInfo().state, PinInfo::Verified);
    pins()->deauthenticate(*channel_, pinReference(0x01));
    expectUserPin(PinInfo::NotVerified, 3);
}

TEST_P(PinServicesTest, BlockedPinIsUnblockedWithThePuk) {
    const mw::ByteBuffer wrong = paddedPin("000000");
    for (unsigned short sw : {0x63C2, 0x63C1, 0x63C0}) {
        EXPECT_CARD_ERROR(pins()->authenticate(*channel_, pinReference(0x01), wrong), "Verify", sw);
    }
    EXPECT_CARD_ERROR(verifyUserPin(), "Verify", 0x6983);
    expectUserPin(PinInfo::Blocked, 0);

    EXPECT_CARD_ERROR(pins()->unblock(*channel_, pinReference(0x01), paddedPin("87878787")),
                      "Reset Retry Counter", 0x63C4);
    pins()->unblock(*channel_, pinReference(0x01), paddedPin(puk));
    expectUserPin(PinInfo::NotVerified, 3);
    verifyUserPin();
}

TEST_P(PinServicesTest, ChangeAndUnblockWithNewValueSetThePin) {
    const mw::ByteBuffer changed = paddedPin("2468");
    EXPECT_CARD_ERROR(pins()->change(*channel_, pinReference(0x01), changed, paddedPin("111111")),
                      "Change Reference Data", 0x63C2);
    pins()->change(*channel_, pinReference(0x01), changed, paddedPin(userPin));
    pins()->authenticate(*channel_, pinReference(0x01), changed);

    pins()->unblockAndChange(*channel_, pinReference(0x01), paddedPin(puk), paddedPin(userPin));
    EXPECT_CARD_ERROR(pins()->authenticate(*channel_, pinReference(0x01), changed), "Verify",
                      0x63C2);
    verifyUserPin();
    expectUserPin(PinInfo::Verified, PinInfo::UnknownTries);
}

TEST_P(PinServicesTest, UnknownPinReferenceIsRefused) {
    EXPECT_CARD_ERROR(pins()->getPinInfo(*channel_, pinReference(0x0A)), "Verify", 0x6A88);
}

INSTANTIATE_TEST_SUITE_P(Transports, PinServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
