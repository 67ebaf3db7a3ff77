#ifndef CARD_SERVICE_PINREFERENCE_HPP
#define CARD_SERVICE_PINREFERENCE_HPP

#include "mw/ByteBuffer.hpp"

namespace card {
namespace service {

// Names a PIN on the card for the PIN management service.
struct PinReference {
    unsigned char reference = 0;
    unsigned char qualifier = 0;
    // Path of the DF that holds the PIN; empty for the current application.
    mw::ByteBuffer path;
};

// Status of a PIN as the card reports it.
struct PinInfo {
    /// Unknown: the card does not answer the status query in a way the
    /// host understands (it may not offer one at all).
    enum State : unsigned short { NotVerified = 0, Verified = 1, Blocked = 2, Unknown = 3 };
    static constexpr unsigned short UnknownTries = 0xFFFF;

    unsigned short state = NotVerified;
    // Verification attempts left before the PIN blocks.
    unsigned short triesLeft = UnknownTries;
};

} // namespace service
} // namespace card

#endif
