#include "host/pcsc/PcscContext.hpp"

#include "card/CardException.hpp"
#include "host/pcsc/PcscError.hpp"

#include <PCSC/pcsclite.h>
#include <boost/exception/get_error_info.hpp>

namespace host {

namespace {

// A card is there when the reader says so and says nothing against it: an
// empty, unavailable or unknown reader holds none.
bool isCardPresent(DWORD state) {
    constexpr DWORD absent = SCARD_STATE_EMPTY | SCARD_STATE_UNAVAILABLE | SCARD_STATE_UNKNOWN;
    return (state & SCARD_STATE_PRESENT) != 0 && (state & absent) == 0;
}

} // namespace

PcscContext::PcscContext() {
    const LONG rv = SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context_);
    if (rv != SCARD_S_SUCCESS) {
        throwPcscError("SCardEstablishContext", rv);
    }
}

PcscContext::~PcscContext() {
    SCardReleaseContext(context_);
}

std::vector<std::string> PcscContext::listReaders() const {
    DWORD length = 0;
    LONG rv = SCardListReaders(context_, nullptr, nullptr, &length);
    if (rv == SCARD_E_NO_READERS_AVAILABLE) {
        return {};
    }
    if (rv != SCARD_S_SUCCESS) {
        throwPcscError("SCardListReaders", rv);
    }
    std::string names(length, '\0');
    rv = SCardListReaders(context_, nullptr, names.data(), &length);
    if (rv == SCARD_E_NO_READERS_AVAILABLE) {
        return {};
    }
    if (rv != SCARD_S_SUCCESS) {
        throwPcscError("SCardListReaders", rv);
    }
    // A multi-string: names separated by NUL, ended by an empty name.
    std::vector<std::string> readers;
    for (std::size_t start = 0; start < names.size() && names[start] != '\0';) {
        const std::size_t end = names.find('\0', start);
        readers.push_back(names.substr(start, end - start));
        start = end + 1;
    }
    return readers;
}

bool PcscContext::waitForCard(const std::string& reader, std::chrono::milliseconds timeout) const {
    return waitForState(reader, timeout, [](DWORD state) { return isCardPresent(state); });
}

bool PcscContext::waitForRemoval(const std::string& reader,
                                 std::chrono::milliseconds timeout) const {
    try {
        return waitForState(reader, timeout, [](DWORD state) { return !isCardPresent(state); });
    } catch (const card::CardException& e) {
        // Without pcscd nothing is known about the card: say so.
        const unsigned int* code = boost::get_error_info<card::ErrorData>(e);
        if (code && isServiceLost(static_cast<LONG>(*code))) {
            throw;
        }
        return true; // the reader itself is gone, and the card with it
    }
}

bool PcscContext::waitForState(const std::string& reader, std::chrono::milliseconds timeout,
                               const std::function<bool(DWORD)>& reached) const {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + timeout;
    SCARD_READERSTATE state{};
    state.szReader = reader.c_str();
    state.dwCurrentState = SCARD_STATE_UNAWARE;
    DWORD wait = 0; // the first call only reads the current state
    for (;;) {
        const LONG rv = SCardGetStatusChange(context_, wait, &state, 1);
        if (rv == SCARD_E_TIMEOUT) {
            return false;
        }
        if (rv != SCARD_S_SUCCESS) {
            throwPcscError("SCardGetStatusChange", rv);
        }
        if (reached(state.dwEventState)) {
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        state.dwCurrentState = state.dwEventState & ~SCARD_STATE_CHANGED;
        wait = static_cast<DWORD>(left.count());
    }
}

} // namespace host
