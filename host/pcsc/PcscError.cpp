#include "host/pcsc/PcscError.hpp"

#include "card/CardException.hpp"

#include <PCSC/pcsclite.h>

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
        return "reader unavailable: PC/SC service not running";
    case SCARD_W_UNRESPONSIVE_CARD:
    case SCARD_W_UNPOWERED_CARD:
    case SCARD_E_NOT_TRANSACTED:
    case SCARD_F_COMM_ERROR:
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

void throwPcscError(LONG code) {
    CARD_THROW(card::CardException() << card::ErrorText(pcscErrorText(code))
                                     << card::ErrorData(static_cast<unsigned int>(code)));
}

} // namespace host
