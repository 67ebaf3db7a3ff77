#ifndef HOST_ERRORMESSAGE_HPP
#define HOST_ERRORMESSAGE_HPP

#include <exception>
#include <string>

namespace host {

// One line for a person: the exception's text with the error information
// the card and application families carry, as
// "card exception: Verify: 63C2 (wrong PIN)" (the status word's meaning for
// the command, from CardStatus) or
// "application exception: unable to find free file id".
std::string errorMessage(const std::exception& e);

} // namespace host

#endif
