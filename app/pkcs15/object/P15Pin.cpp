#include "app/pkcs15/object/P15Pin.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/detail/WallClock.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "card/service/IPinManagementService.hpp"
#include "card/service/PinReference.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>
#include <string>

namespace app {
namespace pkcs15 {
namespace object {

using app::object::InvalidPinException;
using card::service::PinReference;

P15Pin::P15Pin(PinService service, boost::weak_ptr<const fs::AODF> aodf, std::int32_t waitingTime)
    : service_(std::move(service))
    , aodf_(std::move(aodf))
    , waitingTime_(waitingTime) {}

P15Pin::P15Pin(PinService service, boost::weak_ptr<const fs::AODF> aodf, std::int32_t waitingTime,
               const oss::AuthenticationType& entry, mw::ByteBuffer encoding)
    : P15Pin(std::move(service), std::move(aodf), waitingTime) {
    decodeAuthenticationType(entry);
    entry_ = entry;
    encoding_ = std::move(encoding);
}

PinReference P15Pin::reference(const char* missingText) const {
    if (!getPinReference()) {
        APP_THROW(ApplicationException, missingText);
    }
    PinReference pin;
    pin.reference = *getPinReference();
    return pin;
}

PinReference P15Pin::paddingReference() const {
    static const char* const missing =
        "Pin reference, max length and pad char required but not found";
    if (!getMaxLength() || !getPadChar() || getPadChar()->empty()) {
        APP_THROW(ApplicationException, missing);
    }
    return reference(missing);
}

mw::ByteBuffer P15Pin::pad(const mw::ByteBuffer& value) const {
    mw::ByteBuffer padded(getMaxLength().value_or(0));
    std::fill(padded.begin(), padded.end(),
              getPadChar() && !getPadChar()->empty() ? getPadChar()->get(0) : 0x00);
    std::copy_n(value.begin(), std::min(value.size(), padded.size()), padded.begin());
    return padded;
}

void P15Pin::authenticate(const card::IChannel& channel, const mw::ByteBuffer& pin) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    checkValue(pin, InvalidPinException::Current);
    const PinReference ref = paddingReference();
    lastQuery_ = 0;
    service_->authenticate(channel, ref, pad(pin));
}

void P15Pin::change(const card::IChannel& channel, const mw::ByteBuffer& oldPin,
                    const mw::ByteBuffer& newPin) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    checkValue(oldPin, InvalidPinException::Current);
    checkValue(newPin, InvalidPinException::New);
    const PinReference ref = paddingReference();
    lastQuery_ = 0;
    // The service takes the new value first.
    service_->change(channel, ref, pad(newPin), pad(oldPin));
}

// The unblocking PIN's own attributes rule its value when the AODF lists
// it; the value is padded as this PIN's, the way the card compares it.
void P15Pin::checkUnblockingValue(const card::IChannel& channel,
                                  const mw::ByteBuffer& unblockingPin) const {
    const boost::shared_ptr<const fs::AODF> aodf = aodf_.lock();
    const auto& authId = getProtectingAuthId();
    if (aodf && authId) {
        for (const auto& pin : aodf->pins(channel)) {
            if (pin->getAuthId() == *authId) {
                pin->checkValue(unblockingPin, InvalidPinException::Unblocking);
                return;
            }
        }
    }
    checkValue(unblockingPin, InvalidPinException::Unblocking);
}

void P15Pin::unblock(const card::IChannel& channel, const mw::ByteBuffer& unblockingPin) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    checkUnblockingValue(channel, unblockingPin);
    const PinReference ref = paddingReference();
    lastQuery_ = 0;
    service_->unblock(channel, ref, pad(unblockingPin));
}

void P15Pin::unblock(const card::IChannel& channel, const mw::ByteBuffer& unblockingPin,
                     const mw::ByteBuffer& newPin) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    checkUnblockingValue(channel, unblockingPin);
    checkValue(newPin, InvalidPinException::New);
    const PinReference ref = paddingReference();
    lastQuery_ = 0;
    service_->unblockAndChange(channel, ref, pad(unblockingPin), pad(newPin));
}

void P15Pin::deauthenticate(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const PinReference ref = reference("Pin reference required but not found");
    service_->deauthenticate(channel, ref);
}

P15Pin::PinInfo P15Pin::askCard(const card::IChannel& channel, const PinReference& ref) const {
    const card::service::PinInfo answer = service_->getPinInfo(channel, ref);
    PinInfo info;
    info.state = answer.state;
    info.triesLeft = answer.triesLeft;
    return info;
}

P15Pin::PinInfo P15Pin::getPinInfo(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const PinReference ref = reference("pinReference path required but not found");
    if (lastQuery_ == 0) {
        pinInfo_ = askCard(channel, ref);
        if (waitingTime_ > 0) {
            log.addParamOut("WT: ", std::to_string(waitingTime_));
            lastQuery_ = detail::WallClock::nowMillis();
        }
    } else if (waitingTime_ >= 1) {
        const std::int64_t now = detail::WallClock::nowMillis();
        if (now - lastQuery_ > waitingTime_) {
            pinInfo_ = askCard(channel, ref);
            lastQuery_ = now;
        }
    }
    return pinInfo_;
}

void P15Pin::read(const card::IChannel&, const P15Application&) {
    APP_THROW(OperationNotSupportedException, "read pin not supported");
}

void P15Pin::remove(const card::IChannel&, const P15Application&) const {
    APP_THROW(OperationNotSupportedException, "remove pin not supported");
}

} // namespace object
} // namespace pkcs15
} // namespace app
