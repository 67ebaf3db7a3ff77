#ifndef HOST_PCSC_PCSCERROR_HPP
#define HOST_PCSC_PCSCERROR_HPP

#include <PCSC/wintypes.h>

namespace host {

// A failed pcsc-lite call as a card::CardException: a clear text for the
// cases a user can act on ("card removed", "reader unavailable", ...) and
// the PC/SC code as error data.
[[noreturn]] void throwPcscError(LONG code);

// The text throwPcscError attaches for `code`.
const char* pcscErrorText(LONG code);

} // namespace host

#endif
