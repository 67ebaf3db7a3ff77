// The PUK of an SO login (for C_InitPIN) and the old PIN of C_SetPIN leave no copy, the module's or
// the card layer's, in memory given back once the call is over; this binary replaces free() to
// look.
#include "FreeHook.hpp"
#include "ModuleFixture.hpp"

namespace {

using namespace p15test;

TEST_F(ModuleTest, NoReleasedBlockHoldsThePukOrTheOldPin) {
    std::string newPin = "24680", changed = "86420";
    const CK_SESSION_HANDLE session = open();
    freehook::lookFor(puk); // kept from the SO login through C_InitPIN until C_Logout
    ASSERT_EQ(login(session, CKU_SO, puk), CKR_OK);
    ASSERT_EQ(f->C_InitPIN(session, utf8(newPin), newPin.size()), CKR_OK);
    ASSERT_EQ(f->C_Logout(session), CKR_OK);
    EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 0u) << "the PUK";
    freehook::lookFor(newPin); // the old PIN of a change
    ASSERT_EQ(f->C_SetPIN(session, utf8(newPin), newPin.size(), utf8(changed), changed.size()),
              CKR_OK);
    EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 0u) << "the old PIN";
    freehook::lookFor("");
    EXPECT_EQ(login(session, CKU_USER, changed), CKR_OK) << "each secret was used";
}

} // namespace
