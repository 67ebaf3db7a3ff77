#include "host/iso7816/PinManagementService.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"

namespace host {
namespace iso7816 {

namespace {

using card::service::PinInfo;
using card::service::PinReference;

const char* const verifyName = "Verify";
const char* const changeName = "Change Reference Data";
const char* const resetName = "Reset Retry Counter";
constexpr unsigned char verifyIns = 0x20;
constexpr unsigned char changeIns = 0x24;
constexpr unsigned char resetIns = 0x2C;
constexpr unsigned char resetWithNewValue = 0x00;
constexpr unsigned char resetTriesOnly = 0x01;
constexpr unsigned char logOut = 0xFF;
constexpr unsigned short blocked = 0x6983;
constexpr unsigned short referenceNotFound = 0x6A88;

mw::ByteBuffer joined(const mw::ByteBuffer& first, const mw::ByteBuffer& second) {
    mw::ByteBuffer both = first;
    both.append(second);
    return both;
}

} // namespace

PinManagementService::PinManagementService(boost::shared_ptr<FileSelection> selection)
    : selection_(std::move(selection)) {}

void PinManagementService::enterPinDf(const card::Transaction& held,
                                      const PinReference& pin) const {
    if (!pin.path.empty()) {
        selection_->selectDf(held, selection_->absolutePath(pin.path));
    }
}

mw::ByteBuffer PinManagementService::run(const card::IChannel& channel, const PinReference& pin,
                                         const char* name, unsigned char ins, unsigned char p1,
                                         mw::ByteBuffer data) const {
    const auto held = card::Transaction::join(channel);
    enterPinDf(held, pin);
    return IsoCommand(name, ins, p1, pin.reference).withData(std::move(data)).execute(held);
}

void PinManagementService::authenticate(const card::IChannel& channel, const PinReference& pin,
                                        const mw::ByteBuffer& value) const {
    run(channel, pin, verifyName, verifyIns, 0x00, value);
}

void PinManagementService::change(const card::IChannel& channel, const PinReference& pin,
                                  const mw::ByteBuffer& newValue,
                                  const mw::ByteBuffer& oldValue) const {
    run(channel, pin, changeName, changeIns, 0x00, joined(oldValue, newValue));
}

void PinManagementService::unblock(const card::IChannel& channel, const PinReference& pin,
                                   const mw::ByteBuffer& unblockingValue) const {
    run(channel, pin, resetName, resetIns, resetTriesOnly, unblockingValue);
}

void PinManagementService::unblockAndChange(const card::IChannel& channel, const PinReference& pin,
                                            const mw::ByteBuffer& unblockingValue,
                                            const mw::ByteBuffer& newValue) const {
    run(channel, pin, resetName, resetIns, resetWithNewValue, joined(unblockingValue, newValue));
}

void PinManagementService::deauthenticate(const card::IChannel& channel,
                                          const PinReference& pin) const {
    run(channel, pin, verifyName, verifyIns, logOut, {});
}

// VERIFY without data asks for the state, and costs no try on a card that
// offers the query. Other answers (6300, 6A86, 6D00...) leave the state
// unknown, and the card is not asked again: some count it as a try. 6A88
// names a PIN the card does not have, which is the caller's error.
PinInfo PinManagementService::getPinInfo(const card::IChannel& channel,
                                         const PinReference& pin) const {
    PinInfo info;
    if (noStatusQuery_) {
        info.state = PinInfo::Unknown;
        return info;
    }
    const auto held = card::Transaction::join(channel);
    enterPinDf(held, pin);
    const unsigned short sw = IsoCommand(verifyName, verifyIns, 0x00, pin.reference).send(held).sw;
    if (sw == 0x9000) {
        info.state = PinInfo::Verified;
    } else if (sw == blocked) {
        info.state = PinInfo::Blocked;
        info.triesLeft = 0;
    } else if ((sw & 0xFFF0) == 0x63C0) {
        info.state = PinInfo::NotVerified;
        info.triesLeft = sw & 0x0F;
    } else if (sw == referenceNotFound) {
        throwStatus(verifyName, sw);
    } else {
        noStatusQuery_ = true;
        info.state = PinInfo::Unknown;
    }
    return info;
}

} // namespace iso7816
} // namespace host
