#ifndef TESTS_SUPPORT_APPONCARD_HPP
#define TESTS_SUPPORT_APPONCARD_HPP

// A virtual card made from an image, reached through the real host card
// layer, with the PKCS#15 application opened on it as a host opens it.

#include "app/pkcs15/P15Application.hpp"
#include "card/IChannel.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Card.hpp"
#include "host/iso7816/CardSession.hpp"

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vcard {
class VirtualCard;
struct CardState;
} // namespace vcard

namespace support {

using TransportWrapper =
    std::function<std::unique_ptr<card::ICardTransport>(std::unique_ptr<card::ICardTransport>)>;

struct AppOnCard {
    // The card holds the state of `image`; `wrap`, when given, puts a
    // transport of the test's own between the card layer and the card.
    explicit AppOnCard(const std::string& image, const TransportWrapper& wrap = nullptr);
    // With an image path, the card saves every change there.
    explicit AppOnCard(vcard::CardState state, const TransportWrapper& wrap = nullptr,
                       std::optional<std::string> imagePath = std::nullopt);

    // A new application, selected: nothing cached from before.
    boost::shared_ptr<app::pkcs15::P15Application> open() const;
    // Powers the card up again (after an injected removal) and opens anew.
    boost::shared_ptr<app::pkcs15::P15Application> reopen() const;
    void verifyUserPin(const app::pkcs15::P15Application& application) const;

    std::shared_ptr<vcard::VirtualCard> virtualCard;
    boost::shared_ptr<host::Channel> channel;
    boost::shared_ptr<host::iso7816::CardSession> session;
    boost::shared_ptr<host::iso7816::Card> card;
};

mw::ByteBuffer ascii(const std::string& text);
// Read, update and use after the user PIN: the rules of a private key.
app::AccessControlRules userPinRules();

extern const char* const userPin;
extern const char* const puk;

// Imports this process's one 1024-bit RSA private key and its public key, both labelled
// `label` (the user PIN must be verified).
void importKeyPair(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                   const std::string& label);
// The first prime of that key, for tests that look for it in released memory.
mw::ByteBuffer importedKeyPrime();

// The image of a personalised card that also holds one imported key pair
// labelled "Signing key", made once per process.
const std::string& cardWithKeyImage();

} // namespace support

#endif
