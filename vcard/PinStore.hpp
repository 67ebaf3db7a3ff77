#pragma once

#include "vcard/Bytes.hpp"
#include "vcard/SecurityStatus.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace vcard {

/// A card PIN: its padded value of fixed length and its retry counter.
struct Pin {
    Bytes value;
    std::uint8_t maxTries = 3;
    std::uint8_t triesLeft = 3;
    /// The PIN that RESET RETRY COUNTER checks to unblock this one.
    std::optional<std::uint8_t> unblockingPin;

    ~Pin() { wipe(value); }
    bool operator==(const Pin& other) const {
        return value == other.value && maxTries == other.maxTries && triesLeft == other.triesLeft &&
               unblockingPin == other.unblockingPin;
    }
};

/// Stores the whole card state as it stands; false when it could not be stored.
using StoreState = std::function<bool()>;

/// The card-wide PINs and the VERIFY, CHANGE REFERENCE DATA and RESET RETRY COUNTER logic.
/// Refusals throw CardError. Every comparison of a value is paid for first: the lowered retry
/// counter is stored through StoreState, and when that fails the value is not compared (6581).
/// Changes after the comparison turn changed() true, for the caller to store with the command.
class PinStore {
public:
    void add(std::uint8_t reference, Pin pin) { pins_[reference] = std::move(pin); }
    const std::map<std::uint8_t, Pin>& pins() const { return pins_; }

    void verify(std::uint8_t reference, const Bytes& value, SecurityStatus& status,
                const StoreState& store);
    /// VERIFY without data: throws 63Cx when not verified, 6983 when blocked.
    void checkStatus(std::uint8_t reference, const SecurityStatus& status) const;
    /// VERIFY P1 FF: the PIN is no longer verified.
    void logOut(std::uint8_t reference, SecurityStatus& status);
    void change(std::uint8_t reference, const Bytes& oldAndNew, SecurityStatus& status,
                const StoreState& store);
    /// RESET RETRY COUNTER: pukAndNew is the unblocking PIN, then the new value if withNewValue.
    void unblock(std::uint8_t reference, const Bytes& pukAndNew, bool withNewValue,
                 SecurityStatus& status, const StoreState& store);

    bool changed() const { return changed_; }
    void clearChanged() { changed_ = false; }

private:
    Pin& find(std::uint8_t reference);
    void check(std::uint8_t reference, Pin& pin, const Bytes& candidate, SecurityStatus& status,
               const StoreState& store);

    std::map<std::uint8_t, Pin> pins_;
    bool changed_ = false;
};

} // namespace vcard
