// A plain PC/SC client that tries to use another program's PIN verification, on the card in the
// "Virtual PCD" reader. It asks whether the user PIN (reference 01) is verified with a VERIFY
// without data, which changes nothing on the card.
//   race BUSY STOP  until the file STOP exists: takes the card, asks, and when the PIN is
//                   verified holds the card for as long as the file BUSY (the other program
//                   runs) exists, at most 3 s, then asks again. The PIN found verified while BUSY
//                   does not exist is a failure. Prints how often it held the card and failed.
//   check           asks once; exit status 1 when the PIN is verified.
// Either logs out a PIN it found verified without its program.
// Exit status 0 when the PIN was never found verified without the other program running.
#include <PCSC/winscard.h>
#include <PCSC/wintypes.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

void check(LONG rv, const char* call) {
    if (rv != SCARD_S_SUCCESS) {
        char code[24];
        std::snprintf(code, sizeof code, "0x%08lx", static_cast<unsigned long>(rv));
        throw std::runtime_error(std::string(call) + " returned " + code);
    }
}

bool exists(const char* path) {
    return ::access(path, F_OK) == 0;
}

class Card {
public:
    Card() {
        check(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &context_),
              "SCardEstablishContext");
        DWORD length = 0;
        check(SCardListReaders(context_, nullptr, nullptr, &length), "SCardListReaders");
        std::string readers(length, '\0');
        check(SCardListReaders(context_, nullptr, readers.data(), &length), "SCardListReaders");
        for (const char* name = readers.c_str(); *name != '\0' && card_ == 0;
             name += std::string(name).size() + 1) {
            if (std::string(name).find("Virtual PCD") != std::string::npos &&
                SCardConnect(context_, name, SCARD_SHARE_SHARED, anyProtocol, &card_, &protocol_) !=
                    SCARD_S_SUCCESS) {
                card_ = 0;
            }
        }
        if (card_ == 0) {
            throw std::runtime_error("no card in a Virtual PCD reader");
        }
    }
    ~Card() {
        SCardDisconnect(card_, SCARD_LEAVE_CARD);
        SCardReleaseContext(context_);
    }

    // Takes the card; a reset by another program since the last time only reconnects.
    void take() {
        LONG rv = SCardBeginTransaction(card_);
        for (int resets = 0; rv == SCARD_W_RESET_CARD && resets < 100; ++resets) {
            reconnect();
            rv = SCardBeginTransaction(card_);
        }
        check(rv, "SCardBeginTransaction");
    }
    void leave() { check(SCardEndTransaction(card_, SCARD_LEAVE_CARD), "SCardEndTransaction"); }
    bool pinVerified() { return send({0x00, 0x20, 0x00, 0x01}); }
    // Clears what another program left verified, so that each failure is one of its own.
    void logOut() { send({0x00, 0x20, 0xFF, 0x01}); }

private:
    static constexpr DWORD anyProtocol = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;
    SCARDCONTEXT context_ = 0;
    SCARDHANDLE card_ = 0;
    DWORD protocol_ = 0;

    void reconnect() {
        check(SCardReconnect(card_, SCARD_SHARE_SHARED, anyProtocol, SCARD_LEAVE_CARD, &protocol_),
              "SCardReconnect");
    }
    // Whether the card answers 9000. Another program's reset leaves the card's protocol to be
    // chosen again: a reconnection does that.
    bool send(std::array<BYTE, 4> command) {
        BYTE answer[258];
        DWORD length = sizeof answer;
        auto transmit = [&] {
            length = sizeof answer;
            return SCardTransmit(card_,
                                 protocol_ == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1,
                                 command.data(), command.size(), nullptr, answer, &length);
        };
        LONG rv = transmit();
        if (rv == SCARD_E_PROTO_MISMATCH || rv == SCARD_W_RESET_CARD) {
            reconnect();
            rv = transmit();
        }
        check(rv, "SCardTransmit");
        return length == 2 && answer[0] == 0x90 && answer[1] == 0x00;
    }
};

int race(Card& card, const char* busy, const char* stop) {
    int held = 0, failures = 0;
    while (!exists(stop)) {
        card.take();
        if (card.pinVerified()) {
            ++held;
            for (auto end = std::chrono::steady_clock::now() + 3s;
                 exists(busy) && std::chrono::steady_clock::now() < end;) {
                std::this_thread::sleep_for(10ms);
            }
            if (!exists(busy) && card.pinVerified()) {
                ++failures;
                card.logOut();
                std::cerr << "the user PIN is verified with no program using the card\n";
            }
        }
        card.leave();
        std::this_thread::sleep_for(1ms);
    }
    std::cout << "held the verified card " << held << " times, found it verified without its "
              << "program " << failures << " times\n";
    return failures == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (!(mode == "race" && argc == 4) && !(mode == "check" && argc == 2)) {
        std::cerr << "usage: p15-pin-racer race BUSY STOP | check\n";
        return 2;
    }
    try {
        Card card;
        if (mode == "race") {
            return race(card, argv[2], argv[3]);
        }
        card.take();
        const bool verified = card.pinVerified();
        if (verified) {
            card.logOut();
        }
        card.leave();
        return verified ? 1 : 0;
    } catch (const std::exception& e) {
        std::cerr << "p15-pin-racer: " << e.what() << "\n";
        return 2;
    }
}
