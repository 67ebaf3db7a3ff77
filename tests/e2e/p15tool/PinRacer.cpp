// A hostile PC/SC client on the "Virtual PCD" card, looking for another program's verification of
// the user PIN (a VERIFY without data).
//   race BUSY STOP  until STOP exists: takes the card and, finding the PIN verified, holds it while
//                   BUSY (the other program runs) exists, at most 3 s; the PIN then still verified
//                   is a failure, logged out so each failure is the other's own;
//   check           the same once with no BUSY: fails when the PIN is verified at all.
#include <PCSC/winscard.h>
#include <PCSC/wintypes.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

constexpr DWORD anyProtocol = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;
SCARDCONTEXT context = 0;
SCARDHANDLE card = 0;
DWORD protocol = 0;

void check(LONG rv, const char* call) {
    if (rv != SCARD_S_SUCCESS) {
        throw std::runtime_error(std::string(call) + ": " + pcsc_stringify_error(rv));
    }
}

void connect() {
    check(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context),
          "SCardEstablishContext");
    char readers[4096];
    DWORD length = sizeof readers;
    check(SCardListReaders(context, nullptr, readers, &length), "SCardListReaders");
    for (const char* name = readers; *name != '\0' && card == 0; name += std::strlen(name) + 1) {
        if (std::strstr(name, "Virtual PCD") &&
            SCardConnect(context, name, SCARD_SHARE_SHARED, anyProtocol, &card, &protocol) !=
                SCARD_S_SUCCESS) {
            card = 0;
        }
    }
    check(card ? SCARD_S_SUCCESS : SCARD_E_NO_SMARTCARD, "SCardConnect to Virtual PCD");
}

// What call returns once it is not told of another program's reset, or of the protocol a reset
// leaves to be chosen again: reconnecting takes note of either.
template <typename Call> void afterResets(Call call, const char* name) {
    LONG rv = call();
    for (int resets = 0; (rv == SCARD_W_RESET_CARD || rv == SCARD_E_PROTO_MISMATCH) && resets < 100;
         ++resets) {
        // A reset still under way fails the reconnection the same way: try again.
        const LONG reconnected =
            SCardReconnect(card, SCARD_SHARE_SHARED, anyProtocol, SCARD_LEAVE_CARD, &protocol);
        if (reconnected != SCARD_W_RESET_CARD && reconnected != SCARD_E_PROTO_MISMATCH) {
            check(reconnected, "SCardReconnect");
        }
        rv = call();
    }
    check(rv, name);
}

// Whether the card answers 9000 to VERIFY with P1 `p1` of the user PIN.
bool verify(BYTE p1) {
    const BYTE command[] = {0x00, 0x20, p1, 0x01};
    BYTE answer[258];
    DWORD length = 0;
    afterResets(
        [&] {
            length = sizeof answer;
            return SCardTransmit(card, protocol == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1,
                                 command, sizeof command, nullptr, answer, &length);
        },
        "SCardTransmit");
    return length == 2 && answer[0] == 0x90 && answer[1] == 0x00;
}

} // namespace

int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    const std::string mode = argc > 1 ? argv[1] : "";
    if (!(mode == "race" && argc == 4) && !(mode == "check" && argc == 2)) {
        std::cerr << "usage: p15-pin-racer race BUSY STOP | check\n";
        return 2;
    }
    const char* busy = mode == "race" ? argv[2] : "";
    auto exists = [](const char* path) { return ::access(path, F_OK) == 0; };
    int held = 0, failures = 0;
    try {
        connect();
        do {
            afterResets([] { return SCardBeginTransaction(card); }, "SCardBeginTransaction");
            if (verify(0x00)) {
                ++held;
                for (int waits = 0; exists(busy) && waits < 300; ++waits) { // at most 3 s
                    std::this_thread::sleep_for(10ms);
                }
                if (!exists(busy) && verify(0x00)) {
                    ++failures;
                    verify(0xFF); // logs out
                    std::cerr << "the user PIN is verified with no program using the card\n";
                }
            }
            check(SCardEndTransaction(card, SCARD_LEAVE_CARD), "SCardEndTransaction");
            std::this_thread::sleep_for(1ms);
        } while (mode == "race" && !exists(argv[3]));
    } catch (const std::exception& e) {
        std::cerr << "p15-pin-racer: " << e.what() << "\n";
        return 2;
    }
    SCardDisconnect(card, SCARD_LEAVE_CARD);
    SCardReleaseContext(context);
    std::cout << "held the verified card " << held << " times, " << failures << " failures\n";
    return failures == 0 ? 0 : 1;
}
