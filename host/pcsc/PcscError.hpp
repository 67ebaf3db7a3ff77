#ifndef HOST_PCSC_PCSCERROR_HPP
#define HOST_PCSC_PCSCERROR_HPP

#include <PCSC/wintypes.h>

#include <chrono>

namespace host {

// A failed pcsc-lite call as a card::CardException: a clear text for the
// cases a user can act on ("card removed", "reader unavailable", ...) and
// the PC/SC code as error data.
[[noreturn]] void throwPcscError(LONG code);

// The text throwPcscError attaches for `code`.
const char* pcscErrorText(LONG code);

// True when `code` says the connection to pcscd itself is gone: the service
// stopped, or restarted and no longer knows this process's handles.
bool isServiceLost(LONG code);

// Another application held the card in a transaction for all of `limit`.
[[noreturn]] void throwCardInUse(std::chrono::seconds limit);

} // namespace host

#endif
