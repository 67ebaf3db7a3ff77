// The module's slot for the pcscd fixture's "Virtual PCD" reader: its card taken out (the bridge
// stopped) and put back (a new bridge, a fresh card), and processes sharing it.
#include "ModuleFixture.hpp"

#include <chrono>
#include <csignal>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace p15test;

class PcscSlotTest : public ::testing::Test, public Client {
protected:
    void SetUp() override {
        const char* state = std::getenv("P15_PCSCD_STATE");
        if (!state || !std::ifstream(std::string(state) + "/bridge.pid")) {
            GTEST_SKIP() << "runs only under the pcscd fixture (P15_PCSCD_STATE)";
        }
        bridge_ = std::string(state) + "/bridge";
        ::setenv("P15KIT_PKCS11_CARD", "", 1); // no card images: the readers alone
        ::unsetenv("P15KIT_PKCS11_PCSC");
        load();
        for (CK_SLOT_ID id : slots(CK_FALSE)) {
            const auto name = reinterpret_cast<const char*>(info_.slotDescription);
            if (f->C_GetSlotInfo(id, &info_) == CKR_OK &&
                std::string(name, 64).find("Virtual PCD") != std::string::npos) {
                slot_ = id;
                break;
            }
        }
        ASSERT_NE(slot_, ~CK_SLOT_ID(0)) << "no Virtual PCD reader among the slots";
    }
    void TearDown() override {
        if (stopped_) { // a failure left the card out: put it back for later PC/SC tests
            startBridge();
            waitForEvent();
        }
        if (f) {
            f->C_Finalize(nullptr);
        }
    }

    std::vector<CK_SLOT_ID> slots(CK_BBOOL withToken) {
        CK_SLOT_ID ids[64];
        CK_ULONG count = 64;
        EXPECT_EQ(f->C_GetSlotList(withToken, ids, &count), CKR_OK);
        return std::vector<CK_SLOT_ID>(ids, ids + count);
    }
    bool listed(CK_SLOT_ID slot) {
        const auto ids = slots(CK_TRUE);
        return std::find(ids.begin(), ids.end(), slot) != ids.end();
    }

    // The first slot event within 30 s (pcscd polls its readers); none is ~0.
    CK_SLOT_ID waitForEvent() {
        CK_SLOT_ID slot = ~CK_SLOT_ID(0);
        for (auto deadline = std::chrono::steady_clock::now() + 30s;
             f->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr) == CKR_NO_EVENT &&
             std::chrono::steady_clock::now() < deadline;) {
            std::this_thread::sleep_for(100ms);
        }
        return slot;
    }
    void stopBridge() {
        pid_t pid = 0;
        std::ifstream(bridge_ + ".pid") >> pid;
        ASSERT_TRUE(pid > 0 && ::kill(pid, SIGTERM) == 0);
        stopped_ = true;
    }
    void startBridge() {
        const char* serve = std::getenv("P15_VCARD_SERVE");
        shell("\"" + std::string(serve ? serve : "p15-vcard-serve") + "\" >>\"" + bridge_ +
              ".log\" 2>&1 & echo $! >\"" + bridge_ + ".pid\"");
        stopped_ = false;
    }

    bool stopped_ = false;
    std::string bridge_; // the pcscd fixture's bridge.pid and bridge.log without their suffix
    CK_SLOT_ID slot_ = ~CK_SLOT_ID(0); // the "Virtual PCD" reader's
    CK_SLOT_INFO info_{};
};

TEST_F(PcscSlotTest, TheReadersCardLeavesAndComesBack) {
    EXPECT_EQ(info_.flags, CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT);
    CK_TOKEN_INFO token{};
    EXPECT_EQ((std::tuple{listed(slot_), f->C_GetTokenInfo(slot_, &token),
                          token.flags & CKF_LOGIN_REQUIRED}),
              std::tuple(true, CKR_OK, CKF_LOGIN_REQUIRED));

    CK_SESSION_HANDLE session = userSession(CKF_SERIAL_SESSION, slot_);
    CK_SLOT_ID event = 99;
    EXPECT_EQ(f->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr), CKR_NO_EVENT);

    stopBridge();
    ASSERT_EQ(waitForEvent(), slot_) << "no removal event";
    EXPECT_EQ(
        (std::tuple{listed(slot_), login(session, CKU_USER, userPin), f->C_CloseSession(session),
                    f->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &session)}),
        std::tuple(false, CKR_DEVICE_REMOVED, CKR_SESSION_HANDLE_INVALID, CKR_TOKEN_NOT_PRESENT));

    // A blocking wait sees the card come back; C_Finalize would end one that saw nothing.
    auto inserted = std::async(std::launch::async, [&] {
        CK_SLOT_ID found = ~CK_SLOT_ID(0);
        f->C_WaitForSlotEvent(0, &found, nullptr);
        return found;
    });
    startBridge();
    if (inserted.wait_for(30s) != std::future_status::ready) {
        f->C_Finalize(nullptr);
    }
    ASSERT_EQ(inserted.get(), slot_) << "no insertion event";
    EXPECT_TRUE(listed(slot_));
    userSession(CKF_SERIAL_SESSION, slot_);
}

// Two processes, each with its own key pair, sign and decipher at once through pcscd (MANAGE
// SECURITY ENVIRONMENT and its PSO in one card transaction). Then another program's reset
// (p15tool's) logs this process's session out, as C_GetSessionInfo tells the first time and C_Sign
// the second; a new C_Login works.
TEST_F(PcscSlotTest, ProcessesShareTheReadersCard) {
    const std::string tool = std::string(P15TOOL_PATH) + " --reader Virtual ",
                      labels[] = {"shared A " + std::to_string(getpid()),
                                  "shared B " + std::to_string(getpid())};
    const auto keys = [&](const std::string& command) {
        for (const std::string& label : labels) {
            shell(tool + command + " --pin-env P15_TEST_PIN --label '" + label + "'");
        }
    };
    keys("keygen --bits 1024");
    const std::shared_ptr<void> deleted(nullptr, [&](void*) { keys("key delete"); });
    ASSERT_EQ(f->C_Finalize(nullptr), CKR_OK);
    keyPairsUsedAtOnce(f, slot_, {labels[0], labels[1]}, 1000);

    ASSERT_EQ(f->C_Initialize(nullptr), CKR_OK);
    KeyUser user(f, slot_, labels[0]);
    for (const bool signFirst : {false, true}) {
        SCOPED_TRACE(signFirst ? "C_Sign" : "C_GetSessionInfo");
        shell(tool + "list");
        CK_SESSION_INFO state{};
        EXPECT_EQ(signFirst ? user.use(true, "after a reset", false)
                            : f->C_GetSessionInfo(user.session, &state),
                  signFirst ? CKR_USER_NOT_LOGGED_IN : CKR_OK);
        EXPECT_TRUE(signFirst || state.state == CKS_RW_PUBLIC_SESSION) << state.state;
        EXPECT_EQ(user.login(user.session, CKU_USER, userPin), CKR_OK);
        EXPECT_EQ(user.use(true, "after C_Login", false), CKR_OK);
    }
}

} // namespace
