#ifndef HOST_VCARD_VIRTUALCARDTRANSPORT_HPP
#define HOST_VCARD_VIRTUALCARDTRANSPORT_HPP

#include "card/IChannel.hpp"

#include <memory>

namespace vcard {
class VirtualCard;
}

namespace host {

// The virtual card in the host's own process. Nobody else can reach it, so
// transactions cost nothing.
class VirtualCardTransport : public card::ICardTransport {
public:
    explicit VirtualCardTransport(std::unique_ptr<vcard::VirtualCard> card);
    ~VirtualCardTransport() override;

    mw::ByteBuffer getAtr() const override;
    // A card that stopped answering is a card::CardException "card removed".
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override;
    void beginTransaction() const override {}
    void endTransaction() const override {}

    vcard::VirtualCard& virtualCard() const { return *card_; }

private:
    std::unique_ptr<vcard::VirtualCard> card_;
};

} // namespace host

#endif
