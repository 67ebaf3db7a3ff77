// What only a PC/SC reader shows: a reset from outside, and the card going away mid-work.
#include "CardFixture.hpp"

#include "host/pcsc/PcscContext.hpp"
#include "host/pcsc/PcscTransport.hpp"

#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace hosttest {
namespace {

using card::service::PinInfo;

class PcscEventsTest : public CardTest {
protected:
    void SetUp() override {
        CardTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        context_ = std::make_unique<host::PcscContext>();
        reader_ = std::getenv("P15_READER") ? std::getenv("P15_READER") : "";
        for (const std::string& reader : context_->listReaders()) {
            if (reader_.empty() && reader.find("Virtual PCD") != std::string::npos) {
                reader_ = reader;
            }
        }
    }

    // Another application's warm reset, through a handle of its own.
    void resetFromOutside() const {
        SCARDHANDLE other = 0;
        DWORD protocol = 0;
        ASSERT_EQ(SCardConnect(context_->handle(), reader_.c_str(), SCARD_SHARE_SHARED,
                               SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &other, &protocol),
                  SCARD_S_SUCCESS);
        EXPECT_EQ(SCardDisconnect(other, SCARD_RESET_CARD), SCARD_S_SUCCESS);
    }

    // Made in SetUp: without pcscd there is none, and the test skips.
    std::unique_ptr<host::PcscContext> context_;
    std::string reader_;
};

TEST_P(PcscEventsTest, CardResetByAnotherApplicationIsReconnectedAndReselected) {
    files()->select(*channel_, {0x50, 0x32});
    const mw::ByteBuffer tokenInfo = files()->read(*channel_, 0, 0);
    verifyUserPin();
    resetFromOutside();
    // The reset dropped the PIN and went to the MF; the host reads on from its file.
    EXPECT_EQ(files()->read(*channel_, 0, 0), tokenInfo);
    EXPECT_EQ(pins()->getPinInfo(*channel_, pinReference(0x01)).state, PinInfo::NotVerified);
}

// Another process connects with `onRelease`, verifies the user PIN and ends.
void verifyInAnotherProcess(const std::string& reader, host::OnRelease onRelease) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int status = 1;
        try {
            const auto channel = boost::make_shared<host::Channel>(
                host::connectReader(reader, std::chrono::seconds(10), onRelease));
            host::iso7816::Card card(channel);
            card.selectApplication(*channel, host::iso7816::pkcs15Aid());
            boost::dynamic_pointer_cast<card::service::IPinManagementService>(
                card.getInterface("PinManagementService"))
                ->authenticate(*channel, pinReference(0x01), paddedPin(userPin));
            status = 0;
        } catch (...) {
        }
        _exit(status);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the other process failed";
}

TEST_P(PcscEventsTest, PinVerifiedByAnEndedProcessIsLoggedOut) {
    files()->select(*channel_, {0x50, 0x32}); // TokenInfo, updated with the user PIN
    const mw::ByteBuffer first = files()->read(*channel_, 0, 1);
    verifyInAnotherProcess(reader_, host::OnRelease::LogOut);
    EXPECT_CARD_ERROR(files()->update(*channel_, 0, first), "Update Binary", 0x6982);

    verifyInAnotherProcess(reader_, host::OnRelease::KeepLogin);
    EXPECT_EQ(pins()->getPinInfo(*channel_, pinReference(0x01)).state, PinInfo::Verified);
    pins()->deauthenticate(*channel_, pinReference(0x01));
}

// Stops the fixture's bridge, and starts a new one when done for later PC/SC tests.
class PcscRemovalTest : public PcscEventsTest {
protected:
    void SetUp() override {
        state_ = std::getenv("P15_PCSCD_STATE") ? std::getenv("P15_PCSCD_STATE") : "";
        if (state_.empty()) {
            GTEST_SKIP() << "runs only under the pcscd fixture (P15_PCSCD_STATE)";
        }
        PcscEventsTest::SetUp();
    }
    void TearDown() override {
        if (!stopped_) {
            return;
        }
        const std::string restart = "\"${P15_VCARD_SERVE:-p15-vcard-serve}\" >>\"" + state_ +
                                    "/bridge.log\" 2>&1 & echo $! >\"" + state_ + "/bridge.pid\"";
        ASSERT_EQ(std::system(restart.c_str()), 0);
        EXPECT_TRUE(context_->waitForCard(reader_, std::chrono::seconds(10)));
    }
    void stopBridge() {
        pid_t bridge = 0;
        std::ifstream(state_ + "/bridge.pid") >> bridge;
        ASSERT_GT(bridge, 0);
        ASSERT_EQ(kill(bridge, SIGTERM), 0);
        stopped_ = true;
    }

    std::string state_;
    bool stopped_ = false;
};

TEST_P(PcscRemovalTest, RemovedCardIsAClearErrorNotAHang) {
    files()->select(*channel_, {0x44, 0x04});
    stopBridge();
    // pcscd polls its readers: wait until it has seen the card go.
    ASSERT_TRUE(context_->waitForRemoval(reader_, std::chrono::seconds(30)));
    try {
        files()->read(*channel_, 0, 0);
        FAIL() << "the card answered after its bridge stopped";
    } catch (const card::CardException& e) {
        const char* const* text = boost::get_error_info<card::ErrorText>(e);
        ASSERT_TRUE(text);
        const unsigned int* code = boost::get_error_info<card::ErrorData>(e);
        EXPECT_STREQ(*text, "card removed") << std::hex << (code ? *code : 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Reader, PcscEventsTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);
INSTANTIATE_TEST_SUITE_P(Reader, PcscRemovalTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
