// pcsc-wait-card <seconds>: exits 0 as soon as a PC/SC reader named "Virtual PCD ..." holds a
// card, 1 when the time runs out. The pcscd fixture waits with it.

#include <PCSC/winscard.h>
#include <PCSC/wintypes.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

namespace {

bool virtualCardPresent() {
    SCARDCONTEXT context = 0;
    if (SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context) != SCARD_S_SUCCESS)
        return false;
    bool present = false;
    DWORD length = 0;
    if (SCardListReaders(context, nullptr, nullptr, &length) == SCARD_S_SUCCESS) {
        std::string readers(length, '\0');
        SCardListReaders(context, nullptr, readers.data(), &length);
        for (const char* name = readers.c_str(); *name != '\0' && !present;
             name += std::string(name).size() + 1) {
            if (std::string(name).find("Virtual PCD") == std::string::npos)
                continue;
            SCARD_READERSTATE state{};
            state.szReader = name;
            state.dwCurrentState = SCARD_STATE_UNAWARE;
            if (SCardGetStatusChange(context, 0, &state, 1) == SCARD_S_SUCCESS)
                present = (state.dwEventState & SCARD_STATE_PRESENT) != 0;
        }
    }
    SCardReleaseContext(context);
    return present;
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!virtualCardPresent()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            std::cerr << "pcsc-wait-card: no card in a Virtual PCD reader after " << seconds
                      << " s\n";
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return 0;
}
