#include "host/vcard/VirtualCardTransport.hpp"

#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "mw/Exception.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>

namespace host {

namespace {

// The card takes plain vectors; a command may hold a PIN and an answer key
// material, so each copy is zeroed however the call ends.
class WipedOnExit {
public:
    explicit WipedOnExit(vcard::Bytes& bytes)
        : bytes_(bytes) {}
    ~WipedOnExit() { vcard::wipe(bytes_); }
    WipedOnExit(const WipedOnExit&) = delete;
    WipedOnExit& operator=(const WipedOnExit&) = delete;

private:
    vcard::Bytes& bytes_;
};

} // namespace

VirtualCardTransport::VirtualCardTransport(std::shared_ptr<vcard::VirtualCard> card,
                                           OnRelease onRelease)
    : card_(std::move(card))
    , onRelease_(onRelease) {
    if (!card_) {
        MW_THROW(mw::NullPointerException, "transport without a virtual card");
    }
}

VirtualCardTransport::~VirtualCardTransport() {
    // A card that was taken away stays away.
    if (onRelease_ == OnRelease::LogOut && card_->isPoweredOn()) {
        card_->reset();
    }
}

mw::ByteBuffer VirtualCardTransport::getAtr() const {
    const vcard::Bytes atr = card_->atr();
    return mw::ByteBuffer(atr);
}

boost::shared_ptr<mw::ByteBuffer> VirtualCardTransport::transmit(const card::Apdu& command) const {
    if (transactionDepth_ == 0) {
        card::checkOutsideTransaction("a command APDU");
    }
    vcard::Bytes apdu(command.bytes().begin(), command.bytes().end());
    const WipedOnExit wipeCommand(apdu);
    vcard::Bytes response;
    const WipedOnExit wipeResponse(response);
    try {
        response = card_->transmit(apdu);
    } catch (const vcard::CardRemoved&) {
        CARD_THROW(card::CardException() << card::ErrorText("card removed"));
    }
    return boost::make_shared<mw::ByteBuffer>(response);
}

} // namespace host
