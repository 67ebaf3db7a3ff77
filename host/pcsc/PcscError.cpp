#include "host/pcsc/PcscError.hpp"

#include "card/CardException.hpp"

#include <PCSC/pcsclite.h>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>

namespace host {

namespace {

// The text a user can act on, or none.
const char* meaningfulText(LONG code) {
    switch (code) {
    case SCARD_W_REMOVED_CARD:
    case SCARD_E_NO_SMARTCARD:
        return "card removed";
    case SCARD_E_READER_UNAVAILABLE:
    case SCARD_E_UNKNOWN_READER:
    case SCARD_E_NO_READERS_AVAILABLE:
        return "reader unavailable";
    case SCARD_E_NO_SERVICE:
    case SCARD_E_SERVICE_STOPPED:
    case SCARD_F_COMM_ERROR:
    case SCARD_E_INVALID_HANDLE:
        return "PC/SC service stopped or restarted: open the card again";
    case SCARD_W_UNRESPONSIVE_CARD:
    case SCARD_W_UNPOWERED_CARD:
    case SCARD_E_NOT_TRANSACTED:
    case SCARD_E_COMM_DATA_LOST:
        return "card does not respond";
    case SCARD_E_SHARING_VIOLATION:
        return "card in exclusive use by another application";
    case SCARD_E_TIMEOUT:
        return "PC/SC timeout";
    case SCARD_W_RESET_CARD:
        return "card reset by another application";
    default:
        return nullptr;
    }
}

// Error texts are static strings: keeps one of each text this process made.
const char* kept(const std::string& text) {
    static std::mutex mutex;
    static std::set<std::string> texts;
    const std::lock_guard<std::mutex> lock(mutex);
    return texts.insert(text).first->c_str();
}

template <class Exception = card::CardException>
[[noreturn]] void throwWith(const char* text, LONG code) {
    CARD_THROW(Exception() << card::ErrorText(text)
                           << card::ErrorData(static_cast<unsigned int>(code)));
}

#define P15_PCSC_CODE(name)                                                                        \
    { name, #name }
const struct {
    LONG code;
    const char* name;
} codeNames[] = {
    P15_PCSC_CODE(SCARD_S_SUCCESS),
    P15_PCSC_CODE(SCARD_F_INTERNAL_ERROR),
    P15_PCSC_CODE(SCARD_E_CANCELLED),
    P15_PCSC_CODE(SCARD_E_INVALID_HANDLE),
    P15_PCSC_CODE(SCARD_E_INVALID_PARAMETER),
    P15_PCSC_CODE(SCARD_E_INVALID_TARGET),
    P15_PCSC_CODE(SCARD_E_NO_MEMORY),
    P15_PCSC_CODE(SCARD_F_WAITED_TOO_LONG),
    P15_PCSC_CODE(SCARD_E_INSUFFICIENT_BUFFER),
    P15_PCSC_CODE(SCARD_E_UNKNOWN_READER),
    P15_PCSC_CODE(SCARD_E_TIMEOUT),
    P15_PCSC_CODE(SCARD_E_SHARING_VIOLATION),
    P15_PCSC_CODE(SCARD_E_NO_SMARTCARD),
    P15_PCSC_CODE(SCARD_E_UNKNOWN_CARD),
    P15_PCSC_CODE(SCARD_E_CANT_DISPOSE),
    P15_PCSC_CODE(SCARD_E_PROTO_MISMATCH),
    P15_PCSC_CODE(SCARD_E_NOT_READY),
    P15_PCSC_CODE(SCARD_E_INVALID_VALUE),
    P15_PCSC_CODE(SCARD_E_SYSTEM_CANCELLED),
    P15_PCSC_CODE(SCARD_F_COMM_ERROR),
    P15_PCSC_CODE(SCARD_F_UNKNOWN_ERROR),
    P15_PCSC_CODE(SCARD_E_INVALID_ATR),
    P15_PCSC_CODE(SCARD_E_NOT_TRANSACTED),
    P15_PCSC_CODE(SCARD_E_READER_UNAVAILABLE),
    P15_PCSC_CODE(SCARD_P_SHUTDOWN),
    P15_PCSC_CODE(SCARD_E_PCI_TOO_SMALL),
    P15_PCSC_CODE(SCARD_E_READER_UNSUPPORTED),
    P15_PCSC_CODE(SCARD_E_DUPLICATE_READER),
    P15_PCSC_CODE(SCARD_E_CARD_UNSUPPORTED),
    P15_PCSC_CODE(SCARD_E_NO_SERVICE),
    P15_PCSC_CODE(SCARD_E_SERVICE_STOPPED),
    // pcsc-lite gives SCARD_E_UNEXPECTED the same value.
    P15_PCSC_CODE(SCARD_E_UNSUPPORTED_FEATURE),
    P15_PCSC_CODE(SCARD_E_ICC_INSTALLATION),
    P15_PCSC_CODE(SCARD_E_ICC_CREATEORDER),
    P15_PCSC_CODE(SCARD_E_DIR_NOT_FOUND),
    P15_PCSC_CODE(SCARD_E_FILE_NOT_FOUND),
    P15_PCSC_CODE(SCARD_E_NO_DIR),
    P15_PCSC_CODE(SCARD_E_NO_FILE),
    P15_PCSC_CODE(SCARD_E_NO_ACCESS),
    P15_PCSC_CODE(SCARD_E_WRITE_TOO_MANY),
    P15_PCSC_CODE(SCARD_E_BAD_SEEK),
    P15_PCSC_CODE(SCARD_E_INVALID_CHV),
    P15_PCSC_CODE(SCARD_E_UNKNOWN_RES_MNG),
    P15_PCSC_CODE(SCARD_E_NO_SUCH_CERTIFICATE),
    P15_PCSC_CODE(SCARD_E_CERTIFICATE_UNAVAILABLE),
    P15_PCSC_CODE(SCARD_E_NO_READERS_AVAILABLE),
    P15_PCSC_CODE(SCARD_E_COMM_DATA_LOST),
    P15_PCSC_CODE(SCARD_E_NO_KEY_CONTAINER),
    P15_PCSC_CODE(SCARD_E_SERVER_TOO_BUSY),
    P15_PCSC_CODE(SCARD_W_UNSUPPORTED_CARD),
    P15_PCSC_CODE(SCARD_W_UNRESPONSIVE_CARD),
    P15_PCSC_CODE(SCARD_W_UNPOWERED_CARD),
    P15_PCSC_CODE(SCARD_W_RESET_CARD),
    P15_PCSC_CODE(SCARD_W_REMOVED_CARD),
    P15_PCSC_CODE(SCARD_W_SECURITY_VIOLATION),
    P15_PCSC_CODE(SCARD_W_WRONG_CHV),
    P15_PCSC_CODE(SCARD_W_CHV_BLOCKED),
    P15_PCSC_CODE(SCARD_W_EOF),
    P15_PCSC_CODE(SCARD_W_CANCELLED_BY_USER),
    P15_PCSC_CODE(SCARD_W_CARD_NOT_AUTHENTICATED),
};
#undef P15_PCSC_CODE

} // namespace

const char* pcscCodeName(LONG code) {
    for (const auto& entry : codeNames) {
        if (entry.code == code) {
            return entry.name;
        }
    }
    return "unknown code";
}

bool isServiceLost(LONG code) {
    // pcsc-lite reports a broken socket to pcscd as F_COMM_ERROR or
    // NO_SERVICE; a handle the (new) pcscd does not know is INVALID_HANDLE.
    return code == SCARD_E_NO_SERVICE || code == SCARD_E_SERVICE_STOPPED ||
           code == SCARD_F_COMM_ERROR || code == SCARD_E_INVALID_HANDLE;
}

void throwCardInUse(std::chrono::seconds limit) {
    throwWith<card::CardInUseException>(
        kept("card in use by another application: no transaction after " +
             std::to_string(limit.count()) + " s"),
        SCARD_E_TIMEOUT);
}

void throwResetDuringOperation() {
    throwWith("card reset by another application during the operation: it was not completed; "
              "try again",
              SCARD_W_RESET_CARD);
}

void throwPcscError(const char* call, LONG code) {
    if (const char* text = meaningfulText(code)) {
        throwWith(text, code);
    }
    char number[16];
    std::snprintf(number, sizeof number, "0x%08lX",
                  static_cast<unsigned long>(code) & 0xFFFFFFFFUL);
    throwWith(kept(std::string(call) + " returned " + number + " (" + pcscCodeName(code) + ")"),
              code);
}

} // namespace host
