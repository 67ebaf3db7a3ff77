// VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER with their retry counters.

#include "CardTestSupport.hpp"

namespace vcard::test {
namespace {

class PinCommands : public CardTest {
protected:
    std::uint16_t verify(std::uint8_t reference, const std::string& pin) {
        return sw(apdu(0, 0x20, 0, reference, paddedPin(pin)));
    }
    std::uint16_t status(std::uint8_t reference) { return sw(apdu(0, 0x20, 0, reference, {})); }
};

// Blocking after the last try: PinsThroughThePlugin.APinBlocksAfterItsTries...
TEST_F(PinCommands, VerifyWithoutDataTellsTheStatusAWrongValueDrops) {
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(verify(1, "123456"), 0x9000);
    EXPECT_EQ(status(1), 0x9000);
    EXPECT_EQ(verify(1, "000000"), 0x63C2);
    EXPECT_EQ(status(1), 0x63C2);
}

TEST_F(PinCommands, VerifyRefusals) {
    EXPECT_EQ(sw(apdu(0, 0x20, 0, 1, hex("313233343536"))), 0x6700); // not padded: no try used
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(verify(9, "123456"), 0x6A88);
    EXPECT_EQ(status(9), 0x6A88);
    EXPECT_EQ(sw(apdu(0, 0x20, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x20, 0xFF, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(sw("0020FF09"), 0x6A88); // log-out of an unknown PIN
}

TEST_F(PinCommands, SecurityStatusIsClearedByLogoutAndReset) {
    EXPECT_EQ(verify(1, "123456"), 0x9000);
    EXPECT_EQ(verify(3, "87654321"), 0x9000);
    EXPECT_EQ(sw("0020FF01"), 0x9000);
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(status(3), 0x9000); // per PIN
    card->reset();
    EXPECT_EQ(status(3), 0x63C3);
    EXPECT_EQ(verify(1, "123456"), 0x9000);
    card->powerOff();
    card->reset();
    EXPECT_EQ(status(1), 0x63C3);
}

// Old and new values at work: PinsThroughThePlugin.AChangedPinRefusesItsOldValue.
TEST_F(PinCommands, ChangeReferenceDataVerifiesThePin) {
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(sw(apdu(0, 0x24, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("4321")))), 0x9000);
    EXPECT_EQ(status(1), 0x9000);
}

// A wrong PUK and P1 01: PinsThroughThePlugin.APinBlocksAfterItsTries...; P1 00 with
// a new value: PinServicesTest.UnblockWithANewValueReplacesThePin.
TEST_F(PinCommands, ResetRetryCounterWithTheUnblockingPin) {
    for (int i = 0; i < 3; ++i)
        verify(1, "000000");
    ASSERT_EQ(status(1), 0x6983);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x9000);
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(status(2), 0x9000);
    EXPECT_EQ(sw(apdu(0, 0x2C, 0, 1, paddedPin("12345678"))), 0x6700); // new value missing
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 3, paddedPin("12345678"))), 0x6985); // SO PIN: no PUK
    EXPECT_EQ(sw(apdu(0, 0x2C, 2, 1, paddedPin("12345678"))), 0x6A86);
}

TEST_F(PinCommands, BlockedUnblockingPinBlocksTheReset) {
    for (int i = 0; i < 5; ++i)
        sw(apdu(0, 0x2C, 1, 1, paddedPin("00000000")));
    EXPECT_EQ(status(2), 0x6983);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x6983);
}

} // namespace
} // namespace vcard::test
