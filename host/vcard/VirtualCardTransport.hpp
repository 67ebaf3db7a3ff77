#ifndef HOST_VCARD_VIRTUALCARDTRANSPORT_HPP
#define HOST_VCARD_VIRTUALCARDTRANSPORT_HPP

#include "card/IChannel.hpp"
#include "host/CardRelease.hpp"

#include <memory>

namespace vcard {
class VirtualCard;
}

namespace host {

// The virtual card in the host's own process. Other processes may open the
// same image: the outermost transaction locks the image (waiting at most
// transactionLimit() for another holder) and takes up what they changed;
// a card image that cannot be locked or read then is a card::CardException
// naming it. The card may outlive the transport, as a real card outlives a
// reader connection: releasing the transport resets it unless told to keep
// the login, and lets go of the image.
class VirtualCardTransport : public card::ICardTransport {
public:
    explicit VirtualCardTransport(std::shared_ptr<vcard::VirtualCard> card,
                                  OnRelease onRelease = onReleaseFromEnvironment());
    ~VirtualCardTransport() override;
    VirtualCardTransport(const VirtualCardTransport&) = delete;
    VirtualCardTransport& operator=(const VirtualCardTransport&) = delete;

    mw::ByteBuffer getAtr() const override;
    // A card that stopped answering is a card::CardException "card removed".
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override;
    void beginTransaction() const override;
    void endTransaction() const override;
    unsigned long changeCount() const override;
    bool inTransaction() const override { return transactionDepth_ > 0; }

    vcard::VirtualCard& virtualCard() const { return *card_; }

private:
    std::shared_ptr<vcard::VirtualCard> card_;
    OnRelease onRelease_;
    mutable int transactionDepth_ = 0;
};

} // namespace host

#endif
