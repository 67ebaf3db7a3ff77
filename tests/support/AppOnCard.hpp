#ifndef TESTS_SUPPORT_APPONCARD_HPP
#define TESTS_SUPPORT_APPONCARD_HPP

// A virtual card made from an image, reached through the real host card
// layer with every command recorded, with the PKCS#15 application opened on
// it as a host opens it.

#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "card/service/IFileAccessService.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Card.hpp"
#include "host/iso7816/CardSession.hpp"

#include <functional>
#include <memory>
#include <optional>

namespace vcard {
class VirtualCard;
struct CardState;
} // namespace vcard

namespace support {

using TransportWrapper =
    std::function<std::unique_ptr<card::ICardTransport>(std::unique_ptr<card::ICardTransport>)>;

// Records each command; answers chosen commands with a status word of the test's.
class RecordingTransport : public card::ICardTransport {
public:
    explicit RecordingTransport(std::unique_ptr<card::ICardTransport> inner)
        : inner_(std::move(inner)) {}

    mw::ByteBuffer getAtr() const override { return inner_->getAtr(); }
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override;
    void beginTransaction() const override { inner_->beginTransaction(); }
    void endTransaction() const override { inner_->endTransaction(); }

    void answer(const mw::ByteBuffer& command, unsigned short sw) {
        overrides_.emplace_back(command, sw);
    }
    // Commands sent with this instruction byte since the last clear().
    std::vector<mw::ByteBuffer> sent(unsigned char ins) const;
    void clear() { sent_.clear(); }

private:
    std::unique_ptr<card::ICardTransport> inner_;
    std::vector<std::pair<mw::ByteBuffer, unsigned short>> overrides_;
    mutable std::vector<mw::ByteBuffer> sent_;
};

struct AppOnCard {
    // The card holds the state of `image`; `wrap`, when given, puts a
    // transport of the test's own between the card layer and the card.
    explicit AppOnCard(const std::string& image, const TransportWrapper& wrap = nullptr);
    // With an image path, the card saves every change there.
    explicit AppOnCard(vcard::CardState state, const TransportWrapper& wrap = nullptr,
                       std::optional<std::string> imagePath = std::nullopt);

    // A new application, selected: nothing cached from before.
    boost::shared_ptr<app::pkcs15::P15Application>
    open(const std::string& configuration = "") const;
    // Powers the card up again (after an injected removal) and opens anew.
    boost::shared_ptr<app::pkcs15::P15Application> reopen() const;
    void verifyUserPin(const app::pkcs15::P15Application& application) const;
    boost::shared_ptr<card::service::IFileAccessService> files() const;
    // The whole content of a file of the selected application.
    mw::ByteBuffer readFile(const mw::ByteBuffer& fileId) const;
    std::uint64_t commands() const; // sent to the card so far

    std::shared_ptr<vcard::VirtualCard> virtualCard;
    RecordingTransport* recorder;
    boost::shared_ptr<host::Channel> channel;
    boost::shared_ptr<host::iso7816::CardSession> session;
    boost::shared_ptr<host::iso7816::Card> card;
};

extern const char* const userPin;
extern const char* const puk;
mw::ByteBuffer ascii(const std::string& text);
// The PIN at `index` of the listed authentication objects (0: the user PIN).
boost::shared_ptr<app::object::IPin> pinAt(const app::object::ICardObjectRepository& repository,
                                           const card::IChannel& channel, std::size_t index = 0);
// Read, update and use after the user PIN: the rules of a private key.
app::AccessControlRules userPinRules();

// An RSA key's values as the application takes them; one of `bits` for the
// whole process, so that importing it again writes the same bytes.
struct RsaKeyMaterial {
    mw::ByteBuffer modulus, exponent, p, q, dp, dq, pInv, qInv;
};
const RsaKeyMaterial& rsaKey(unsigned int bits = 1024);

// Key objects labelled `label`, their key id too, not on the card yet; the
// private key signs and deciphers under userPinRules(). For a generator,
// the sizes alone (0 leaves one unset); for an import, the values of `key`.
struct RsaKeyPair {
    boost::shared_ptr<app::object::IPrivateRSAKey> privateKey;
    boost::shared_ptr<app::object::IPublicRSAKey> publicKey;
};
RsaKeyPair newKeyPair(const app::object::ICardObjectFactory& factory, const std::string& label,
                      std::uint16_t privateBits, std::uint16_t publicBits);
RsaKeyPair newKeyPair(const app::object::ICardObjectFactory& factory, const std::string& label,
                      const RsaKeyMaterial& key);
// Imports rsaKey(1024) labelled `label` (the user PIN must be verified).
void importKeyPair(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                   const std::string& label);

// A certificate of tests/data/certs, DER.
mw::ByteBuffer certificateFile(const std::string& name);
// A personalised card's image that also holds one imported key pair
// labelled "Signing key", made once per process.
const std::string& cardWithKeyImage();

} // namespace support

#endif
