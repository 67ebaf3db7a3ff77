// VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER with their retry counters.

#include "CardTestSupport.hpp"
#include "FreeHook.hpp"

namespace vcard::test {
namespace {

using PinCommands = CardTest;

// VERIFY without data tells the status and costs no try; refusals of form cost none either.
// Blocking after the last try: PinCommands.APinBlocksAfterItsTriesAndThePukFreesIt (p15tool).
TEST_F(PinCommands, VerifyStatusAndRefusals) {
    EXPECT_EQ(sw(apdu(0, 0x20, 0, 1, hex("313233343536"))), 0x6700); // not padded
    EXPECT_EQ(sw(apdu(0, 0x20, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x20, 0xFF, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);
    EXPECT_EQ(verify(*card, 1, "123456"), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x9000);
    EXPECT_EQ(verify(*card, 1, "000000"), 0x63C2);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C2); // a wrong value also unverifies
    for (const char* unknown : {"00200009 08 3132333435363738", "00200009", "0020FF09"})
        EXPECT_EQ(sw(unknown), 0x6A88) << unknown;
}

// CHANGE REFERENCE DATA checks the old value (and verifies the PIN: the right old value gives
// the try back); RESET RETRY COUNTER gives the tries back and verifies the PUK, a blocked PUK
// blocks it, the SO PIN has none. A blocked PIN freed (p15tool):
// PinCommands.APinBlocksAfterItsTriesAndThePukFreesIt; new values at work (pkcs11):
// ModuleTest.WrongPinsShowInTheFlagsUntilThePukSetsANewOne and
// SetPinNeedsAReadWriteSessionAndTheOldValue.
TEST_F(PinCommands, ChangeAndResetRetryCounter) {
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, paddedPin("123456"))), 0x6700);
    EXPECT_EQ(sw(apdu(0, 0x24, 1, 1, paddedPin("123456"))), 0x6A86);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("000000"), paddedPin("4321")))), 0x63C2);
    EXPECT_EQ(sw(apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("4321")))), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x9000);
    EXPECT_EQ(sw("0020FF01"), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);

    EXPECT_EQ(verify(*card, 1, "000000"), 0x63C2);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x9000);
    EXPECT_EQ(pinStatus(*card, 1), 0x63C3);
    EXPECT_EQ(pinStatus(*card, 2), 0x9000);                            // the PUK verified
    EXPECT_EQ(sw(apdu(0, 0x2C, 0, 1, paddedPin("12345678"))), 0x6700); // new value missing
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 3, paddedPin("12345678"))), 0x6985); // SO PIN: no PUK
    EXPECT_EQ(sw(apdu(0, 0x2C, 2, 1, paddedPin("12345678"))), 0x6A86);
    for (int i = 0; i < 5; ++i)
        sw(apdu(0, 0x2C, 1, 1, paddedPin("00000000")));
    EXPECT_EQ(pinStatus(*card, 2), 0x6983);
    EXPECT_EQ(sw(apdu(0, 0x2C, 1, 1, paddedPin("12345678"))), 0x6983);
}

// The PIN of VERIFY, the old value of CHANGE REFERENCE DATA and the PUK of RESET RETRY COUNTER
// are wiped before their memory is released, whether the value was right or wrong.
TEST_F(PinCommands, NoReleasedBlockHoldsAPinValueOfACommand) {
    const struct {
        const char* what;
        Bytes command;
        std::string secret;
    } rows[] = {
        {"VERIFY", apdu(0, 0x20, 0, 1, paddedPin("123456")), "123456\xFF\xFF"},
        {"wrong VERIFY", apdu(0, 0x20, 0, 1, paddedPin("654321")), "654321\xFF\xFF"},
        {"CHANGE, old", apdu(0, 0x24, 0, 1, concat(paddedPin("123456"), paddedPin("2468"))),
         "123456\xFF\xFF"},
        {"wrong CHANGE, old", apdu(0, 0x24, 0, 1, concat(paddedPin("654321"), paddedPin("2468"))),
         "654321\xFF\xFF"},
        {"RESET, PUK", apdu(0, 0x2C, 1, 1, paddedPin("12345678")), "12345678"},
        {"wrong RESET, PUK", apdu(0, 0x2C, 1, 1, paddedPin("87654321")), "87654321"},
        {"RESET, PUK and new", apdu(0, 0x2C, 0, 1, concat(paddedPin("12345678"), paddedPin("97"))),
         "12345678"},
    };
    for (const auto& row : rows) {
        card = VirtualCard::personalised();
        freehook::lookFor(row.secret);
        send(row.command);
        const std::size_t holding = freehook::blocksFreedHoldingSecret();
        freehook::lookFor("");
        EXPECT_EQ(holding, 0u) << row.what;
    }
}

} // namespace
} // namespace vcard::test
