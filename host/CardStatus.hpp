#ifndef HOST_CARDSTATUS_HPP
#define HOST_CARDSTATUS_HPP

namespace host {

/// What a card's refusal means, whatever a host reports it as.
enum class CardFault {
    WrongPin,         ///< a PIN command's value was wrong; tries are left or it just blocked
    PinBlocked,       ///< a PIN command met a blocked PIN or unblocking PIN
    NotAuthenticated, ///< the access condition of the file or key is not met
    NotUsable,        ///< reference data (a key, an algorithm) the command names is not usable
    NoMemory,         ///< the card has no room: a file too big, a write past a file's end
    BadCryptogram,    ///< a cryptogram deciphered to a block without valid padding
    DataTooLong,      ///< more data than the key takes
    Other,            ///< anything else the card refuses
};

/// The meaning of one status word in answer to one command.
struct CardStatus {
    CardFault fault;
    /// For a wrong PIN: the tries left, or -1 when the card does not say (6300).
    int triesLeft;
    /// In words, for a person: "wrong PIN", "reference data not usable"...;
    /// for a combination the table does not know, the status word's generic
    /// ISO 7816-4 text.
    const char* text;
};

/// The meaning of status word `sw` in answer to `command`, the card layer's
/// name of the command (card::Command; null when none was named). A status
/// word can mean different things for different commands: 63Cx and 6300
/// are a wrong PIN, 6983 and 6984 a blocked one, only for VERIFY, CHANGE
/// REFERENCE DATA and RESET RETRY COUNTER; 6A80 is a bad cryptogram only
/// for Decipher.
CardStatus cardStatusOf(const char* command, unsigned short sw);

} // namespace host

#endif
