#include "vcard/PinStore.hpp"

#include "vcard/StatusWord.hpp"

namespace vcard {

namespace {

bool equalInConstantTime(const Bytes& a, const Bytes& b) {
    if (a.size() != b.size())
        return false;
    std::uint8_t difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<std::uint8_t>(a[i] ^ b[i]);
    return difference == 0;
}

Bytes slice(const Bytes& data, std::size_t offset, std::size_t length) {
    return Bytes(data.begin() + offset, data.begin() + offset + length);
}

} // namespace

Pin& PinStore::find(std::uint8_t reference) {
    auto it = pins_.find(reference);
    if (it == pins_.end())
        throw CardError(sw::referenceNotFound);
    return it->second;
}

void PinStore::check(std::uint8_t reference, Pin& pin, const Bytes& candidate,
                     SecurityStatus& status, const StoreState& store) {
    if (pin.triesLeft == 0)
        throw CardError(sw::blocked);
    status.clear(reference);
    // The try is stored before the comparison: one whose cost cannot be stored tells nothing.
    --pin.triesLeft;
    if (!store()) {
        ++pin.triesLeft; // nothing was compared: no try was used
        throw CardError(sw::memoryFailure);
    }
    if (!equalInConstantTime(pin.value, candidate))
        throw CardError(sw::triesLeft(pin.triesLeft));
    pin.triesLeft = pin.maxTries;
    changed_ = true;
    status.setVerified(reference);
}

void PinStore::verify(std::uint8_t reference, const Bytes& value, SecurityStatus& status,
                      const StoreState& store) {
    Pin& pin = find(reference);
    if (value.size() != pin.value.size())
        throw CardError(sw::wrongLength);
    check(reference, pin, value, status, store);
}

void PinStore::checkStatus(std::uint8_t reference, const SecurityStatus& status) const {
    auto it = pins_.find(reference);
    if (it == pins_.end())
        throw CardError(sw::referenceNotFound);
    if (it->second.triesLeft == 0)
        throw CardError(sw::blocked);
    if (!status.isVerified(reference))
        throw CardError(sw::triesLeft(it->second.triesLeft));
}

void PinStore::logOut(std::uint8_t reference, SecurityStatus& status) {
    find(reference);
    status.clear(reference);
}

void PinStore::change(std::uint8_t reference, const Bytes& oldAndNew, SecurityStatus& status,
                      const StoreState& store) {
    Pin& pin = find(reference);
    const std::size_t length = pin.value.size();
    if (oldAndNew.size() != 2 * length)
        throw CardError(sw::wrongLength);
    Bytes oldValue = slice(oldAndNew, 0, length);
    Bytes newValue = slice(oldAndNew, length, length);
    try {
        check(reference, pin, oldValue, status, store);
    } catch (const CardError&) {
        wipe(oldValue);
        wipe(newValue);
        throw;
    }
    wipe(pin.value);
    pin.value = std::move(newValue);
    wipe(oldValue);
    changed_ = true;
}

void PinStore::unblock(std::uint8_t reference, const Bytes& pukAndNew, bool withNewValue,
                       SecurityStatus& status, const StoreState& store) {
    Pin& pin = find(reference);
    if (!pin.unblockingPin)
        throw CardError(sw::conditionsNotSatisfied);
    const std::uint8_t pukReference = *pin.unblockingPin;
    Pin& puk = find(pukReference);
    const std::size_t pukLength = puk.value.size();
    const std::size_t newLength = withNewValue ? pin.value.size() : 0;
    if (pukAndNew.size() != pukLength + newLength)
        throw CardError(sw::wrongLength);
    Bytes pukValue = slice(pukAndNew, 0, pukLength);
    try {
        check(pukReference, puk, pukValue, status, store);
    } catch (const CardError&) {
        wipe(pukValue);
        throw;
    }
    wipe(pukValue);
    if (withNewValue) {
        wipe(pin.value);
        pin.value = slice(pukAndNew, pukLength, newLength);
    }
    pin.triesLeft = pin.maxTries;
    changed_ = true;
}

} // namespace vcard
