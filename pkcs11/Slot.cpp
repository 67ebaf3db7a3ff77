#include "pkcs11/Slot.hpp"

#include "host/pcsc/PcscContext.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "pkcs11/Errors.hpp"
#include "vcard/VirtualCard.hpp"

#include <cstring>
#include <sys/stat.h>

namespace pkcs11 {

namespace {

bool fileExists(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0;
}

} // namespace

Slot::Slot(CK_SLOT_ID id, CardLocation location, std::shared_ptr<const host::PcscContext> pcsc)
    : id_(id)
    , location_(std::move(location))
    , pcsc_(std::move(pcsc))
    , reportedPresent_(cardPresent()) {}

Slot::~Slot() = default;

bool Slot::cardPresent() const {
    if (!location_.image.empty()) {
        return fileExists(location_.image);
    }
    try {
        return pcsc_ && pcsc_->waitForCard(location_.reader, std::chrono::milliseconds(0));
    } catch (const std::exception&) {
        return false; // the reader or pcscd went away: no card either
    }
}

void Slot::describe(CK_SLOT_INFO& info) const {
    std::memset(&info, 0, sizeof info);
    const bool image = !location_.image.empty();
    putText(info.slotDescription, sizeof info.slotDescription,
            image ? "p15kit virtual card " + location_.image : location_.reader);
    putText(info.manufacturerID, sizeof info.manufacturerID, "p15kit");
    info.flags = (cardPresent() ? CKF_TOKEN_PRESENT : 0) | (image ? 0 : CKF_REMOVABLE_DEVICE) |
                 (image ? 0 : CKF_HW_SLOT);
}

std::unique_ptr<card::ICardTransport> Slot::connect() const {
    if (!cardPresent()) {
        throw Failure(CKR_TOKEN_NOT_PRESENT);
    }
    if (!location_.image.empty()) {
        try {
            return std::make_unique<host::VirtualCardTransport>(
                vcard::VirtualCard::open(location_.image));
        } catch (const vcard::ImageError& error) {
            throw Failure(CKR_DEVICE_ERROR, error.what());
        }
    }
    return std::make_unique<host::PcscTransport>(pcsc_, location_.reader);
}

std::string Slot::tokenLabel() const {
    return location_.image.empty() ? "PKCS#15 card" : "p15kit virtual card";
}

Token& Slot::token(const host::PluginLoader& loader) {
    if (!token_) {
        token_ = std::make_unique<Token>(loader, connect(), tokenLabel());
    }
    return *token_;
}

void Slot::disconnect() {
    token_.reset();
}

bool Slot::takeEvent() {
    const bool present = cardPresent();
    if (present == reportedPresent_) {
        return false;
    }
    reportedPresent_ = present;
    return true;
}

} // namespace pkcs11
