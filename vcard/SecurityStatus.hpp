#pragma once

#include <bitset>
#include <cstdint>

namespace vcard {

/// Which PINs are verified in this card session. Never stored in the card image: a reset or
/// power-off starts with nothing verified.
class SecurityStatus {
public:
    bool isVerified(std::uint8_t pinReference) const { return verified_.test(pinReference); }
    void setVerified(std::uint8_t pinReference) { verified_.set(pinReference); }
    void clear(std::uint8_t pinReference) { verified_.reset(pinReference); }
    void clearAll() { verified_.reset(); }

private:
    std::bitset<256> verified_;
};

} // namespace vcard
