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

TEST_F(PinCommands, VerifyCountsTriesAndBlocks) {
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(verify(1, "000000"), 0x63C2);
    EXPECT_EQ(verify(1, "123456"), 0x9000); // resets the counter
    EXPECT_EQ(status(1), 0x9000);
    EXPECT_EQ(verify(1, "000000"), 0x63C2); // a wrong value drops the status too
    EXPECT_EQ(status(1), 0x63C2);
    EXPECT_EQ(verify(1, "000000"), 0x63C1);
    EXPECT_EQ(verify(1, "000000"), 0x63C0);
    EXPECT_EQ(verify(1, "123456"), 0x6983); // blocked: even the right value fails
    EXPECT_EQ(status(1), 0x6983);
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

TEST_F(PinCommands, ChangeReferenceData) {
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("999999"), paddedPin("4321")))), 0x63C2);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(sw(apdu(0, 0x24, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("4321")))), 0x9000);
    EXPECT_EQ(status(1), 0x9000);
    EXPECT_EQ(verify(1, "123456"), 0x63C2);
    EXPECT_EQ(verify(1, "4321"), 0x9000);
}

TEST_F(PinCommands, ResetRetryCounterWithTheUnblockingPin) {
    for (int i = 0; i < 3; ++i)
        verify(1, "000000");
    ASSERT_EQ(status(1), 0x6983);
    // Wrong PUK costs a PUK try.
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("00000000"))), 0x63C4);
    EXPECT_EQ(status(2), 0x63C4);
    // P1 01: tries reset, value kept.
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x9000);
    EXPECT_EQ(status(1), 0x63C3);
    EXPECT_EQ(status(2), 0x9000);
    EXPECT_EQ(verify(1, "123456"), 0x9000);
    // P1 00: a new value too.
    EXPECT_EQ(sw(apdu(0, 0x2C, 0, 1, concat(paddedPin("12345678"), paddedPin("5555")))), 0x9000);
    EXPECT_EQ(verify(1, "5555"), 0x9000);
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
