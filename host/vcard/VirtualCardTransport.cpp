#include "host/vcard/VirtualCardTransport.hpp"

#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "mw/Exception.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>

namespace host {

VirtualCardTransport::VirtualCardTransport(std::unique_ptr<vcard::VirtualCard> card)
    : card_(std::move(card)) {
    if (!card_) {
        MW_THROW(mw::NullPointerException, "transport without a virtual card");
    }
}

VirtualCardTransport::~VirtualCardTransport() = default;

mw::ByteBuffer VirtualCardTransport::getAtr() const {
    const vcard::Bytes atr = card_->atr();
    return mw::ByteBuffer(atr);
}

boost::shared_ptr<mw::ByteBuffer> VirtualCardTransport::transmit(const card::Apdu& command) const {
    // The card takes plain vectors: wipe both copies, they may hold a PIN.
    vcard::Bytes apdu(command.bytes().begin(), command.bytes().end());
    vcard::Bytes response;
    try {
        response = card_->transmit(apdu);
    } catch (const vcard::CardRemoved&) {
        vcard::wipe(apdu);
        CARD_THROW(card::CardException() << card::ErrorText("card removed"));
    }
    vcard::wipe(apdu);
    auto answer = boost::make_shared<mw::ByteBuffer>(response);
    vcard::wipe(response);
    return answer;
}

} // namespace host
