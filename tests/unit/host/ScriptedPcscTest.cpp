// The PC/SC transport over a scripted layer in place of libpcsclite: what pcscd with the virtual
// card never produces (resets at any point, odd answers and codes, stuck calls).
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "host/pcsc/PcscTransport.hpp"

#include <PCSC/pcsclite.h>
#include <PCSC/winscard.h>
#include <boost/exception/get_error_info.hpp>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <unistd.h>

namespace {

// The next code scripted for a call (else success), the next answer for SCardTransmit (else 9000);
// a stalled SCardBeginTransaction or SCardStatus waits, as pcsc-lite does, until its handle goes.
// Never destroyed: a helper thread left stuck may still answer while the process exits.
std::mutex& mutex = *new std::mutex;
std::condition_variable& unstalled = *new std::condition_variable;
auto& codes = *new std::map<std::string, std::deque<LONG>>;
auto& answers = *new std::deque<std::vector<BYTE>>;
auto& calls = *new std::vector<std::string>;
auto& beginThreads = *new std::vector<pid_t>;
auto& statusThreads = *new std::vector<pid_t>;
bool stalled = false;

LONG next(const char* call) {
    const std::lock_guard<std::mutex> lock(mutex);
    calls.push_back(call);
    std::deque<LONG>& scripted = codes[call];
    const LONG rv = scripted.empty() ? SCARD_S_SUCCESS : scripted.front();
    if (!scripted.empty())
        scripted.pop_front();
    return rv;
}

} // namespace

extern "C" {
const SCARD_IO_REQUEST g_rgSCardT0Pci{SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci{SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};
LONG SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT context) {
    *context = 1;
    return next("SCardEstablishContext");
}
LONG SCardReleaseContext(SCARDCONTEXT) {
    return next("SCardReleaseContext");
}
LONG SCardListReaders(SCARDCONTEXT, LPCSTR, LPSTR, LPDWORD) {
    return SCARD_E_NO_READERS_AVAILABLE;
}
LONG SCardConnect(SCARDCONTEXT, LPCSTR, DWORD, DWORD, LPSCARDHANDLE card, LPDWORD protocol) {
    *card = 2;
    *protocol = SCARD_PROTOCOL_T1;
    return next("SCardConnect");
}
LONG SCardReconnect(SCARDHANDLE, DWORD, DWORD, DWORD, LPDWORD protocol) {
    *protocol = SCARD_PROTOCOL_T1;
    return next("SCardReconnect");
}
LONG SCardDisconnect(SCARDHANDLE, DWORD) {
    const std::lock_guard<std::mutex> lock(mutex);
    stalled = false;
    unstalled.notify_all();
    return SCARD_S_SUCCESS;
}
LONG stall(std::vector<pid_t>& threads, const char* call) {
    std::unique_lock<std::mutex> lock(mutex);
    threads.push_back(gettid());
    unstalled.wait(lock, [] { return !stalled; });
    lock.unlock();
    return next(call);
}
LONG SCardBeginTransaction(SCARDHANDLE) {
    return stall(beginThreads, "SCardBeginTransaction");
}
LONG SCardEndTransaction(SCARDHANDLE, DWORD) {
    return next("SCardEndTransaction");
}
LONG SCardStatus(SCARDHANDLE, LPSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE, LPDWORD atrLength) {
    *atrLength = 0;
    return stall(statusThreads, "SCardStatus");
}
LONG SCardGetStatusChange(SCARDCONTEXT, DWORD wait, SCARD_READERSTATE* states, DWORD) {
    states->dwEventState = SCARD_STATE_PRESENT; // the card stays: no removal to wait for
    return wait == 0 ? SCARD_S_SUCCESS : SCARD_E_TIMEOUT;
}
LONG SCardTransmit(SCARDHANDLE, const SCARD_IO_REQUEST*, LPCBYTE, DWORD, SCARD_IO_REQUEST*,
                   LPBYTE answer, LPDWORD length) {
    std::vector<BYTE> scripted{0x90, 0x00};
    if (!answers.empty()) {
        scripted = answers.front();
        answers.pop_front();
    }
    std::memcpy(answer, scripted.data(), *length = static_cast<DWORD>(scripted.size()));
    return next("SCardTransmit");
}
}

namespace {

const card::Apdu command(0x00, 0xB0, 0x00, 0x00);

class ScriptedPcscTest : public ::testing::Test {
protected:
    void SetUp() override {
        codes.clear();
        answers.clear();
        transport_ = std::make_unique<host::PcscTransport>(std::make_shared<host::PcscContext>(),
                                                           "Scripted", host::OnRelease::KeepLogin);
        calls.clear();
    }
    // The error text of what `work` throws, checking its PC/SC code.
    template <class Work> std::string errorOf(Work work, LONG code) {
        try {
            work();
        } catch (const card::CardException& e) {
            EXPECT_EQ(*boost::get_error_info<card::ErrorData>(e), static_cast<unsigned int>(code));
            return *boost::get_error_info<card::ErrorText>(e);
        }
        return "no error";
    }
    std::unique_ptr<host::PcscTransport> transport_;
};

TEST_F(ScriptedPcscTest, ResetInsideATransactionIsReportedNotRepeated) {
    transport_->beginTransaction();
    transport_->transmit(command);
    codes["SCardTransmit"] = {SCARD_W_RESET_CARD};
    EXPECT_EQ(errorOf([&] { transport_->transmit(command); }, SCARD_W_RESET_CARD),
              "card reset by another application during the operation: it was not completed; "
              "try again");
    EXPECT_EQ(transport_->resetCount(), 1u);
    transport_->endTransaction();
    transport_->beginTransaction(); // the next scope works
    transport_->transmit(command);
    transport_->endTransaction();
    EXPECT_EQ(calls, (std::vector<std::string>{
                         "SCardBeginTransaction", "SCardTransmit", "SCardTransmit",
                         "SCardReconnect", "SCardBeginTransaction", "SCardEndTransaction",
                         "SCardBeginTransaction", "SCardTransmit", "SCardEndTransaction"}));
}

// A one-byte answer, and codes that a user can act on or that only name their call.
TEST_F(ScriptedPcscTest, FailuresNameTheirCallOrWhatAUserCanDo) {
    answers = {{0x90}};
    EXPECT_EQ(errorOf([&] { transport_->transmit(command); }, SCARD_E_NOT_TRANSACTED),
              "card does not respond");
    for (const auto& [call, code, text] :
         {std::tuple{"SCardTransmit", SCARD_E_NO_SERVICE,
                     "PC/SC service stopped or restarted: open the card again"},
          {"SCardTransmit", SCARD_E_INVALID_PARAMETER,
           "SCardTransmit returned 0x80100004 (SCARD_E_INVALID_PARAMETER)"},
          {"SCardBeginTransaction", LONG(0x12345),
           "SCardBeginTransaction returned 0x00012345 (unknown code)"}}) {
        codes[call] = {code};
        EXPECT_EQ(errorOf([&] { transport_->transmit(command); }, code), text);
    }
}

TEST_F(ScriptedPcscTest, OneHelperThreadServesTheWaitsAndAStuckOneIsReplaced) {
    setenv("P15_TRANSACTION_TIMEOUT", "1", 1);
    SetUp();
    unsetenv("P15_TRANSACTION_TIMEOUT");
    beginThreads.clear();
    statusThreads.clear();
    transport_->transmit(command);
    transport_->transmit(command);
    stalled = true;
    EXPECT_EQ(transport_->resetCount(), 0u); // after a short wait for pcscd's answer
    EXPECT_EQ(transport_->resetCount(), 0u); // not asked again while that call is stuck
    EXPECT_EQ(errorOf([&] { transport_->transmit(command); }, SCARD_E_TIMEOUT),
              "card in use by another application: no transaction after 1 s");
    transport_->transmit(command);
    transport_->transmit(command);
    ASSERT_EQ(beginThreads.size(), 5u);
    EXPECT_EQ(statusThreads, std::vector<pid_t>{beginThreads[0]});
    EXPECT_NE(beginThreads[0], gettid());
    EXPECT_EQ(beginThreads[1], beginThreads[0]);
    EXPECT_NE(beginThreads[2], beginThreads[0]); // the stuck helper was left
    EXPECT_NE(beginThreads[3], beginThreads[2]);
    EXPECT_EQ(beginThreads[4], beginThreads[3]);
}

} // namespace
