#ifndef CARD_CARDEXCEPTION_HPP
#define CARD_CARDEXCEPTION_HPP

#include "mw/Visibility.hpp"

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>
#include <exception>
#include <string>

namespace card {

// A card command failed, or the card's data is malformed.
class MW_EXPORT_TYPE CardException : public virtual std::exception,
                                     public virtual boost::exception {
public:
    const char* what() const noexcept override { return "card exception"; }
};

class MW_EXPORT_TYPE InvalidDataException : public CardException {
public:
    const char* what() const noexcept override { return "invalid data exception"; }
};

/// Another program held the card (or the card image) for longer than this
/// one waits for it; nothing was sent.
class MW_EXPORT_TYPE CardInUseException : public CardException {};

struct tag_error_text;
struct tag_error_data;
struct tag_status_code;
struct tag_command;

using ErrorText = boost::error_info<tag_error_text, const char*>;
using ErrorData = boost::error_info<tag_error_data, unsigned int>;
using StatusCode = boost::error_info<tag_status_code, unsigned short>;
using Command = boost::error_info<tag_command, const char*>;

// The text of a status word SW1SW2 ("unknown error" when it has none).
const char* statusText(unsigned short sw);

// Renders a status word in diagnostic_information as its text in the frame
// of every other tag: "[card::tag_status_code*] = File or application not
// found" (found by argument-dependent lookup).
std::string to_string(const StatusCode& info);

} // namespace card

// Throws a card exception of the given class with the throw site recorded
// and the given error information streamed onto it:
//   CARD_THROW(card::CardException() << card::Command("Select") << card::StatusCode(sw));
#define CARD_THROW(exceptionWithInfo) BOOST_THROW_EXCEPTION(exceptionWithInfo)

#endif
