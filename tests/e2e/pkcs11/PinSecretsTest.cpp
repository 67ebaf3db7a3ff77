// The PUK an SO login hands the module for C_InitPIN, and the old PIN of
// C_SetPIN, leave no copy in memory given back to the runtime once the call
// that needed them is over: neither the module's own nor the card layer's
// underneath. This binary replaces free() to look.
#include "FreeHook.hpp"
#include "ModuleFixture.hpp"

#include <functional>

namespace {

using namespace p15test;

TEST_F(ModuleTest, NoReleasedBlockHoldsThePukOrTheOldPin) {
    std::string newPin = "24680", changed = "86420";
    const struct {
        const char* secret;
        std::function<void(CK_SESSION_HANDLE)> use;
    } rows[] = {
        {"12345678", // the PUK: kept from the SO login through C_InitPIN until C_Logout
         [&](CK_SESSION_HANDLE session) {
             ASSERT_EQ(login(session, CKU_SO, puk), CKR_OK);
             ASSERT_EQ(f->C_InitPIN(session, utf8(newPin), newPin.size()), CKR_OK);
             ASSERT_EQ(f->C_Logout(session), CKR_OK);
         }},
        {"24680", // the old PIN of a change
         [&](CK_SESSION_HANDLE session) {
             ASSERT_EQ(
                 f->C_SetPIN(session, utf8(newPin), newPin.size(), utf8(changed), changed.size()),
                 CKR_OK);
         }},
    };
    const CK_SESSION_HANDLE session = open();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.secret);
        freehook::lookFor(row.secret);
        row.use(session);
        EXPECT_EQ(freehook::blocksFreedHoldingSecret(), 0u);
        freehook::lookFor("");
    }
    EXPECT_EQ(login(session, CKU_USER, changed), CKR_OK) << "each secret was used";
}

} // namespace
