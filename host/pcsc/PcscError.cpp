#include "host/pcsc/PcscError.hpp"

#include "card/CardException.hpp"

#include <PCSC/pcsclite.h>
#include <mutex>
#include <set>
#include <string>

namespace host {

const char* pcscErrorText(LONG code) {
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
        return "PC/SC error";
    }
}

bool isServiceLost(LONG code) {
    // pcsc-lite reports a broken socket to pcscd as F_COMM_ERROR or
    // NO_SERVICE; a handle the (new) pcscd does not know is INVALID_HANDLE.
    return code == SCARD_E_NO_SERVICE || code == SCARD_E_SERVICE_STOPPED ||
           code == SCARD_F_COMM_ERROR || code == SCARD_E_INVALID_HANDLE;
}

void throwCardInUse(std::chrono::seconds limit) {
    // Error texts are static strings: keep one per limit this process used.
    static std::mutex mutex;
    static std::set<std::string> texts;
    const std::string text = "card in use by another application: no transaction after " +
                             std::to_string(limit.count()) + " s";
    const char* kept = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        kept = texts.insert(text).first->c_str();
    }
    CARD_THROW(card::CardException()
               << card::ErrorText(kept)
               << card::ErrorData(static_cast<unsigned int>(SCARD_E_TIMEOUT)));
}

void throwPcscError(LONG code) {
    CARD_THROW(card::CardException() << card::ErrorText(pcscErrorText(code))
                                     << card::ErrorData(static_cast<unsigned int>(code)));
}

} // namespace host
