#ifndef PKCS11_SLOT_HPP
#define PKCS11_SLOT_HPP

#include "pkcs11/Token.hpp"

#include <memory>
#include <string>

namespace host {
class PcscContext;
class PluginLoader;
} // namespace host

namespace pkcs11 {

// Where a slot's card is: a virtual card image, or a PC/SC reader.
struct CardLocation {
    std::string image;  // empty for a reader
    std::string reader; // empty for an image
};

// A place a card can be in. Its token exists while the card is there and
// was asked for; a card found gone takes the token with it.
class Slot {
public:
    Slot(CK_SLOT_ID id, CardLocation location, std::shared_ptr<const host::PcscContext> pcsc);
    ~Slot();

    CK_SLOT_ID id() const { return id_; }
    const CardLocation& location() const { return location_; }

    bool cardPresent() const;
    void describe(CK_SLOT_INFO& info) const;

    // The token of the card in the slot, connected on first use: no card is
    // CKR_TOKEN_NOT_PRESENT, a card without a PKCS#15 application
    // CKR_TOKEN_NOT_RECOGNIZED.
    Token& token(const host::PluginLoader& loader);
    bool hasToken() const { return token_ != nullptr; }
    // Lets go of the card (it was removed, or its last session closed).
    void disconnect();

    // True once for every change of card presence since the last report,
    // for C_WaitForSlotEvent.
    bool takeEvent();

private:
    std::unique_ptr<card::ICardTransport> connect() const;
    std::string tokenLabel() const;

    CK_SLOT_ID id_;
    CardLocation location_;
    std::shared_ptr<const host::PcscContext> pcsc_;
    std::unique_ptr<Token> token_;
    bool reportedPresent_;
};

} // namespace pkcs11

#endif
