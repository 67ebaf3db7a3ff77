// What only a PC/SC reader shows: a reset from outside, another application holding the card,
// and pcscd restarting mid-work. A card taken out of the reader: PcscSlotTest (pkcs11.pcsc).
#include "CardFixture.hpp"
#include "TestKeys.hpp"

#include "host/pcsc/PcscContext.hpp"
#include "host/pcsc/PcscTransport.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace hosttest {
namespace {

using card::service::PinInfo;
using std::chrono::seconds;

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

    // Made in SetUp: without pcscd there is none, and the test skips.
    std::unique_ptr<host::PcscContext> context_;
    std::string reader_;
};

TEST_P(PcscEventsTest, CardResetByAnotherApplicationIsReconnectedAndReselected) {
    files()->select(*channel_, {0x50, 0x32});
    const mw::ByteBuffer tokenInfo = files()->read(*channel_, 0, 0);
    verifyUserPin();
    // Another application's handle, released with a warm reset.
    host::connectReader(reader_, seconds(10), host::OnRelease::LogOut).reset();
    // The reset dropped the PIN and went to the MF; the host reads on from its file.
    EXPECT_EQ(files()->read(*channel_, 0, 0), tokenInfo);
    EXPECT_EQ(pins()->getPinInfo(*channel_, pinReference(0x01)).state, PinInfo::NotVerified);
}

// Waits one second for another application's transaction, not ten.
class PcscContentionTest : public PcscEventsTest {
protected:
    void SetUp() override {
        setenv("P15_TRANSACTION_TIMEOUT", "1", 1);
        PcscEventsTest::SetUp();
    }
    void TearDown() override { unsetenv("P15_TRANSACTION_TIMEOUT"); }

    const std::string inUse = "card in use by another application: no transaction after 1 s";
};

TEST_P(PcscContentionTest, CardHeldByAnotherApplicationIsAClearErrorUntilReleased) {
    files()->select(*channel_, {0x50, 0x32});
    const mw::ByteBuffer tokenInfo = files()->read(*channel_, 0, 0);
    auto loggingOut = host::connectReader(reader_, seconds(10), host::OnRelease::LogOut);
    const auto other = host::connectReader(reader_, seconds(10), host::OnRelease::KeepLogin);
    other->beginTransaction(); // another application's handle holds the card
    // The first wait is for a transaction, the second for a new connection.
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }), inUse);
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }), inUse);
    // Its log-out waits for the card too, a bounded time.
    const auto start = std::chrono::steady_clock::now();
    loggingOut.reset();
    EXPECT_LT(std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now() - start).count(),
              10);
    other->endTransaction();
    EXPECT_EQ(files()->read(*channel_, 0, 0), tokenInfo);
}

// Stops what the pcscd fixture started (the bridge, pcscd) and, when done, starts them again
// for later PC/SC tests.
class PcscRemovalTest : public PcscEventsTest {
protected:
    void SetUp() override {
        state_ = std::getenv("P15_PCSCD_STATE") ? std::getenv("P15_PCSCD_STATE") : "";
        if (state_.empty()) {
            GTEST_SKIP() << "runs only under the pcscd fixture (P15_PCSCD_STATE)";
        }
        PcscEventsTest::SetUp();
    }
    void TearDown() override { startStopped(); }

    void stop(const std::string& name) {
        pid_t pid = 0;
        std::ifstream(state_ + "/" + name + ".pid") >> pid;
        ASSERT_GT(pid, 0);
        ASSERT_EQ(kill(pid, SIGTERM), 0);
        stopped_.push_back(name);
        // pcscd must be gone before another can take its socket.
        for (int i = 0; i < 100 && !ended(pid); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ASSERT_TRUE(ended(pid)) << name;
    }
    // In the reverse order: pcscd before the bridge that connects to it.
    void startStopped() {
        for (auto name = stopped_.rbegin(); name != stopped_.rend(); ++name) {
            const std::string program =
                *name == "pcscd" ? "pcscd --foreground" : "\"${P15_VCARD_SERVE:-p15-vcard-serve}\"";
            const std::string start = program + " >>\"" + state_ + "/" + *name + ".log\" 2>&1 & " +
                                      "echo $! >\"" + state_ + "/" + *name + ".pid\"";
            ASSERT_EQ(std::system(start.c_str()), 0);
        }
        if (!stopped_.empty()) {
            stopped_.clear();
            EXPECT_TRUE(cardReturns(seconds(10)));
        }
    }

    std::string state_;

private:
    static bool ended(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string id, name, state;
        return !(stat >> id >> name >> state) || state == "Z";
    }
    // A client of its own: one that pcscd knew before a restart stays cut off.
    bool cardReturns(seconds wait) const {
        const auto deadline = std::chrono::steady_clock::now() + wait;
        do {
            try {
                if (host::PcscContext().waitForCard(reader_, seconds(1))) {
                    return true;
                }
            } catch (const card::CardException&) {
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        } while (std::chrono::steady_clock::now() < deadline);
        return false;
    }

    std::vector<std::string> stopped_;
};

TEST_P(PcscRemovalTest, RestartedPcscdIsAClearErrorThenConnectsAgain) {
    if (!std::ifstream(state_ + "/pcscd.pid")) {
        GTEST_SKIP() << "pcscd was running before the fixture, which leaves it alone";
    }
    files()->select(*channel_, {0x50, 0x32});
    stop("bridge");
    stop("pcscd");
    startStopped();
    EXPECT_EQ(errorInfo<card::ErrorText>([&] { files()->read(*channel_, 0, 0); }),
              "PC/SC service stopped or restarted: open the card again");
    // Not a removal: nothing is known about the card.
    EXPECT_THROW(context_->waitForRemoval(reader_, seconds(1)), card::CardException);
    EXPECT_FALSE(host::connectReader(reader_, seconds(10))->getAtr().empty());
}

INSTANTIATE_TEST_SUITE_P(Reader, PcscEventsTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);
INSTANTIATE_TEST_SUITE_P(Reader, PcscContentionTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);
INSTANTIATE_TEST_SUITE_P(Reader, PcscRemovalTest, ::testing::Values(TransportKind::Pcsc),
                         transportName);

} // namespace
} // namespace hosttest
