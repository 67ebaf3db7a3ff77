// The token's PINs: which PIN is whose, their tries as token flags, login,
// logout and the PIN changes of C_SetPIN and C_InitPIN.
#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "card/CardException.hpp"
#include "card/ICard.hpp"
#include "card/service/IPinManagementService.hpp"
#include "pkcs11/Errors.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>

namespace pkcs11 {

namespace {

using app::object::IPin;
using card::service::PinInfo;

bool isUserPin(const IPin& pin) {
    return !(pin.getPinFlags() & (IPin::SoPin | IPin::UnblockingPin));
}

Bytes bytesOf(const mw::ByteBuffer& buffer) {
    return Bytes(buffer.begin(), buffer.end());
}

} // namespace

const Token::Pins& Token::pins() {
    if (pins_) {
        return *pins_;
    }
    std::vector<PinPtr> all;
    for (const auto& object : repository_->getAuthObjects(channel())) {
        if (auto pin = boost::dynamic_pointer_cast<IPin>(object)) {
            all.push_back(pin);
        }
    }
    Pins found;
    const auto user = std::find_if(all.begin(), all.end(), [](auto& p) { return isUserPin(*p); });
    if (user != all.end()) {
        found.user = *user;
        const auto& protecting = found.user->getProtectingAuthId();
        const auto unblocking = std::find_if(all.begin(), all.end(), [&](auto& p) {
            return protecting ? p->getAuthId() == *protecting
                              : (p->getPinFlags() & IPin::UnblockingPin) != 0;
        });
        if (unblocking != all.end() && *unblocking != found.user) {
            found.unblocking = *unblocking;
        }
    }
    pins_ = found;
    return *pins_;
}

const IPin& Token::userPin() {
    if (!pins().user) {
        throw Failure(CKR_USER_PIN_NOT_INITIALIZED, "the card has no user PIN");
    }
    return *pins().user;
}

const IPin& Token::unblockingPin() {
    if (!pins().unblocking) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the user PIN has no unblocking PIN");
    }
    return *pins().unblocking;
}

CK_FLAGS Token::pinFlags(const IPin& pin, CK_FLAGS low, CK_FLAGS finalTry, CK_FLAGS locked) {
    const IPin::PinInfo info = pin.getPinInfo(channel());
    if (info.state == PinInfo::Blocked || info.triesLeft == 0) {
        return locked;
    }
    if (info.triesLeft == PinInfo::UnknownTries) {
        return 0;
    }
    std::uint16_t& most = mostTries_[bytesOf(pin.getAuthId())];
    most = std::max(most, info.triesLeft);
    if (info.triesLeft == 1) {
        return finalTry;
    }
    return info.triesLeft < most ? low : 0;
}

template <class Operation> void Token::tryPin(const IPin& pin, Operation operation) {
    try {
        operation();
    } catch (const boost::exception& error) {
        // 63Cx: wrong, x tries left, so the PIN had more than x before.
        const unsigned short* sw = boost::get_error_info<card::StatusCode>(error);
        if (sw && (*sw & 0xFFF0) == 0x63C0) {
            std::uint16_t& most = mostTries_[bytesOf(pin.getAuthId())];
            most = std::max<std::uint16_t>(most, (*sw & 0x0F) + 1);
        }
        throw;
    }
}

void Token::checkPinLength(const IPin& pin, const mw::ByteBuffer& value) const {
    const std::size_t longest = pin.getMaxLength().value_or(pin.getStoredLength());
    if (value.size() < pin.getMinLength() || value.size() > longest) {
        throw Failure(CKR_PIN_LEN_RANGE,
                      "PIN of " + std::to_string(value.size()) + " characters, the card takes " +
                          std::to_string(pin.getMinLength()) + " to " + std::to_string(longest));
    }
}

mw::ByteBuffer Token::padded(const IPin& pin, const mw::ByteBuffer& value) const {
    mw::ByteBuffer result(pin.getMaxLength().value_or(pin.getStoredLength()));
    const auto& padChar = pin.getPadChar();
    std::fill(result.begin(), result.end(), padChar && !padChar->empty() ? padChar->get(0) : 0);
    std::copy_n(value.begin(), std::min(value.size(), result.size()), result.begin());
    return result;
}

void Token::login(CK_USER_TYPE user, const mw::ByteBuffer& pin) {
    if (user == CKU_CONTEXT_SPECIFIC) {
        throw Failure(CKR_OPERATION_NOT_INITIALIZED, "no key of this token needs a login per use");
    }
    if (user != CKU_USER && user != CKU_SO) {
        throw Failure(CKR_USER_TYPE_INVALID);
    }
    if (loggedIn_) {
        throw Failure(*loggedIn_ == user ? CKR_USER_ALREADY_LOGGED_IN
                                         : CKR_USER_ANOTHER_ALREADY_LOGGED_IN);
    }
    const IPin& target = user == CKU_USER ? userPin() : unblockingPin();
    checkPinLength(target, pin);
    tryPin(target, [&] { target.authenticate(channel(), pin); });
    loggedIn_ = user;
    if (user == CKU_SO) {
        soSecret_ = pin;
    }
}

void Token::logout() {
    if (!loggedIn_) {
        throw Failure(CKR_USER_NOT_LOGGED_IN);
    }
    const IPin& target = *loggedIn_ == CKU_USER ? userPin() : unblockingPin();
    forgetLogin();
    target.deauthenticate(channel());
}

void Token::forgetLogin() {
    loggedIn_.reset();
    soSecret_ = mw::ByteBuffer();
}

void Token::followReset() {
    const card::ICardTransport& transport = channel().transport(0);
    const unsigned long resets = transport.resetCount();
    if (resets != resetsSeen_) {
        resetsSeen_ = resets;
        forgetLogin();
    }
    const unsigned long changes = transport.changeCount();
    if (changes != changesSeen_) {
        changesSeen_ = changes;
        application_->clearCache();
    }
}

void Token::setPin(const mw::ByteBuffer& oldPin, const mw::ByteBuffer& newPin) {
    const bool so = loggedIn_ == CKU_SO;
    const IPin& target = so ? unblockingPin() : userPin();
    checkPinLength(target, newPin);
    tryPin(target, [&] { target.change(channel(), oldPin, newPin); });
    if (so) {
        soSecret_ = newPin;
    } else if (!loggedIn_) {
        // The card counts a change as a verification; the login stays the
        // caller's to make.
        target.deauthenticate(channel());
    }
}

void Token::initPin(const mw::ByteBuffer& newPin) {
    if (loggedIn_ != CKU_SO) {
        throw Failure(CKR_USER_NOT_LOGGED_IN, "C_InitPIN needs the SO logged in");
    }
    const IPin& user = userPin();
    if (newPin.empty()) {
        tryPin(unblockingPin(), [&] { user.unblock(channel(), soSecret_); });
        return;
    }
    checkPinLength(user, newPin);
    const auto service = boost::dynamic_pointer_cast<card::service::IPinManagementService>(
        card_->getInterface("PinManagementService"));
    if (!service || !user.getPinReference()) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the card cannot set a PIN with its PUK");
    }
    card::service::PinReference reference;
    reference.reference = *user.getPinReference();
    tryPin(unblockingPin(), [&] {
        service->unblockAndChange(channel(), reference, padded(unblockingPin(), soSecret_),
                                  padded(user, newPin));
    });
}

} // namespace pkcs11
