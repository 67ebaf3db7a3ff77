#include "host/vcard/VirtualCardTransport.hpp"

#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "host/ApduTrace.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "mw/Exception.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <mutex>
#include <set>

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

// The image could not be locked or read: error texts are static strings,
// so each distinct one is kept for the life of the process.
[[noreturn]] void throwImageFailure(const vcard::ImageError& error) {
    static std::mutex mutex;
    static std::set<std::string> texts;
    const std::lock_guard<std::mutex> lock(mutex);
    const char* text = texts.insert(error.what()).first->c_str();
    if (dynamic_cast<const vcard::ImageBusy*>(&error)) {
        CARD_THROW(card::CardInUseException() << card::ErrorText(text));
    }
    CARD_THROW(card::CardException() << card::ErrorText(text));
}

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
    if (transactionDepth_ > 0) {
        card_->unlock();
    }
}

void VirtualCardTransport::beginTransaction() const {
    if (transactionDepth_ == 0) {
        try {
            card_->lock(transactionLimit());
        } catch (const vcard::ImageError& error) {
            throwImageFailure(error);
        }
    }
    ++transactionDepth_;
}

void VirtualCardTransport::endTransaction() const {
    if (transactionDepth_ > 0 && --transactionDepth_ == 0) {
        card_->unlock();
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
    } catch (const vcard::ImageError& error) {
        throwImageFailure(error);
    }
    auto answer = boost::make_shared<mw::ByteBuffer>(response);
    traceApdu(command, answer.get());
    return answer;
}

unsigned long VirtualCardTransport::changeCount() const {
    return card_->changesTakenUp();
}

} // namespace host
