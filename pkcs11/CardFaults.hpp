#ifndef PKCS11_CARDFAULTS_HPP
#define PKCS11_CARDFAULTS_HPP

// What a card's refusal means, whatever a host reports it as. Kept free of
// PKCS#11 types so that any host can share it.
namespace pkcs11 {

enum class CardFault {
    WrongPin,         // a PIN command's value was wrong; tries are left or it just blocked
    PinBlocked,       // a PIN command met a blocked PIN or unblocking PIN
    NotAuthenticated, // the access condition of the file or key is not met
    NoMemory,         // the card has no room: a file too big, a write past a file's end
    BadCryptogram,    // a cryptogram deciphered to a block without valid padding
    DataTooLong,      // more data than the key takes
    Other,            // anything else the card refuses
};

/// The meaning of status word `sw` in answer to `command`, the card layer's
/// name of the command (card::Command; null when none was named). A status
/// word can mean different things for different commands: 63Cx is a wrong
/// PIN only for the PIN commands, 6A80 a bad cryptogram only for Decipher.
CardFault cardFaultOf(const char* command, unsigned short sw);

} // namespace pkcs11

#endif
