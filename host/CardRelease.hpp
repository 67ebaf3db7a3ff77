#ifndef HOST_CARDRELEASE_HPP
#define HOST_CARDRELEASE_HPP

namespace host {

// What a transport leaves on the card when the host lets it go. By default
// it logs out: a PC/SC transport disconnects with a card reset and the
// in-process virtual card is reset, so no PIN verified by this host stays
// verified for the next application. Hosts that share a login with other
// applications on purpose keep it.
enum class OnRelease { LogOut, KeepLogin };

// KeepLogin when the environment sets P15_KEEP_LOGIN=1, LogOut otherwise.
OnRelease onReleaseFromEnvironment();

} // namespace host

#endif
