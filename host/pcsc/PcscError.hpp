#ifndef HOST_PCSC_PCSCERROR_HPP
#define HOST_PCSC_PCSCERROR_HPP

#include <PCSC/wintypes.h>

#include <chrono>

namespace host {

/// The one way a failed pcsc-lite call becomes a card::CardException: a
/// clear text for the cases a user can act on ("card removed", "reader
/// unavailable", "PC/SC service stopped or restarted: open the card
/// again", ...), otherwise the call and its code, as in
/// "SCardTransmit returned 0x80100004 (SCARD_E_INVALID_PARAMETER)". The
/// PC/SC code is the exception's card::ErrorData either way.
[[noreturn]] void throwPcscError(const char* call, LONG code);

/// The name of a PC/SC return code ("SCARD_E_INVALID_PARAMETER"); "unknown
/// code" for one pcsc-lite does not define.
const char* pcscCodeName(LONG code);

/// True when `code` says the connection to pcscd itself is gone: the
/// service stopped, or restarted and no longer knows this process's handles.
bool isServiceLost(LONG code);

/// Another application held the card in a transaction for all of `limit`.
[[noreturn]] void throwCardInUse(std::chrono::seconds limit);

/// Another application reset the card while this host held it in a
/// transaction: what the operation had set up on the card is gone.
[[noreturn]] void throwResetDuringOperation();

} // namespace host

#endif
