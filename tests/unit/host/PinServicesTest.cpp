// PIN service paths the application does not reach; leaves the PINs as personalised.
#include "CardFixture.hpp"

namespace hosttest {
namespace {

using card::service::PinInfo;

class PinServicesTest : public CardTest {};

TEST_P(PinServicesTest, UnblockWithANewValueReplacesThePin) {
    const mw::ByteBuffer changed = paddedPin("2468");
    pins()->unblockAndChange(*channel_, pinReference(0x01), paddedPin(puk), changed);
    EXPECT_CARD_ERROR(verifyUserPin(), "Verify", 0x63C2);
    pins()->authenticate(*channel_, pinReference(0x01), changed);
    pins()->unblockAndChange(*channel_, pinReference(0x01), paddedPin(puk), paddedPin(userPin));
    verifyUserPin();
    const PinInfo info = pins()->getPinInfo(*channel_, pinReference(0x01));
    EXPECT_EQ(info.state, PinInfo::Verified);
    EXPECT_EQ(info.triesLeft, PinInfo::UnknownTries) << "a verified PIN's answer has no count";
    pins()->deauthenticate(*channel_, pinReference(0x01));
}

TEST_P(PinServicesTest, UnknownPinReferenceIsRefused) {
    EXPECT_CARD_ERROR(pins()->getPinInfo(*channel_, pinReference(0x0A)), "Verify", 0x6A88);
}

INSTANTIATE_TEST_SUITE_P(Transports, PinServicesTest,
                         ::testing::Values(TransportKind::InProcess, TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
