#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/PluginLoader.hpp"
#include "mw/Hex.hpp"
#include "pkcs11/Errors.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstring>

namespace pkcs11 {

Token::Token(const host::PluginLoader& loader, std::unique_ptr<card::ICardTransport> transport,
             std::string label)
    : label_(std::move(label))
    , channel_(boost::make_shared<host::Channel>(std::move(transport)))
    // High enough that a zero or a small stray number names no object.
    , nextHandle_(0x1001) {
    card_ = boost::make_shared<host::iso7816::Card>(channel_);
    const card::Transaction held(*channel_);
    resetsSeen_ = channel_->transport(0).resetCount();
    changesSeen_ = channel_->transport(0).changeCount();
    for (const auto& application : loader.getApplications(card_, *channel_)) {
        if (auto* repository =
                dynamic_cast<app::object::ICardObjectRepository*>(application.get())) {
            application_ = application;
            repository_ = repository;
            return;
        }
    }
    throw Failure(CKR_TOKEN_NOT_RECOGNIZED, "no PKCS#15 application on the card");
}

Token::~Token() = default;

const card::IChannel& Token::channel() const {
    return *channel_;
}

void Token::describe(CK_TOKEN_INFO& info, const SessionCounts& sessions) {
    std::memset(&info, 0, sizeof info);
    const auto tokenInfo = repository_->getApplicationInfo(channel());
    const auto& label = tokenInfo ? tokenInfo->getLabel() : boost::none;
    putText(info.label, sizeof info.label, label && !label->empty() ? *label : label_);
    const auto& manufacturer = tokenInfo ? tokenInfo->getManufacturerId() : boost::none;
    putText(info.manufacturerID, sizeof info.manufacturerID, manufacturer.value_or("p15kit"));
    putText(info.model, sizeof info.model, "PKCS#15");
    const auto& serial = tokenInfo ? tokenInfo->getSerialNumber() : boost::none;
    // The serial number's hex digits; a long one keeps its last digits,
    // which tell cards of one series apart.
    const std::string serialHex = serial ? mw::toHex(*serial) : std::string();
    putText(
        info.serialNumber, sizeof info.serialNumber,
        serialHex.substr(serialHex.size() - std::min(serialHex.size(), sizeof info.serialNumber)));
    info.flags = CKF_TOKEN_INITIALIZED | CKF_RNG;
    if (tokenInfo && (tokenInfo->getTokenFlags() & app::object::IApplicationInfo::ReadOnly)) {
        info.flags |= CKF_WRITE_PROTECTED;
    }
    if (const PinPtr& user = pins().user) {
        info.flags |=
            CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED |
            pinFlags(*user, CKF_USER_PIN_COUNT_LOW, CKF_USER_PIN_FINAL_TRY, CKF_USER_PIN_LOCKED);
        info.ulMaxPinLen = user->getMaxLength().value_or(user->getStoredLength());
        info.ulMinPinLen = user->getMinLength();
    }
    if (const PinPtr& unblocking = pins().unblocking) {
        info.flags |=
            pinFlags(*unblocking, CKF_SO_PIN_COUNT_LOW, CKF_SO_PIN_FINAL_TRY, CKF_SO_PIN_LOCKED);
    }
    info.ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
    info.ulSessionCount = sessions.all;
    info.ulMaxRwSessionCount = CK_EFFECTIVELY_INFINITE;
    info.ulRwSessionCount = sessions.readWrite;
    info.ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
}

void putText(CK_UTF8CHAR* field, std::size_t size, const std::string& text) {
    std::size_t length = std::min(size, text.size());
    // Not in the middle of a UTF-8 sequence: back up over continuation bytes.
    while (length < text.size() && length > 0 &&
           (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    std::memset(field, ' ', size);
    std::memcpy(field, text.data(), length);
}

} // namespace pkcs11
