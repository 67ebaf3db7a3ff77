#pragma once

#include "vcard/CardState.hpp"

#include <string>

namespace vcard {

/// What may differ between personalised cards; the defaults are those of docs/card-profile.md.
struct Personalisation {
    std::string label = "p15kit virtual card";
    std::string userPin = "123456";
    std::string unblockingPin = "12345678";
    std::string soPin = "87654321";
    /// A card that also hashes (SHA-1 to SHA-512 with RSA) instead of offering raw RSA only.
    bool hashOnCard = false;
    /// How the card speaks; an iso card does not hash.
    CardProfile profile = CardProfile::Native;
};

/// PIN references and DF identifiers of the personalised card.
namespace layout {
constexpr std::uint8_t userPinReference = 0x01;
constexpr std::uint8_t unblockingPinReference = 0x02;
constexpr std::uint8_t soPinReference = 0x03;
constexpr std::uint16_t applicationDf = 0x5015;
constexpr std::size_t pinLength = 8;
constexpr std::uint8_t pinPadding = 0xFF;
} // namespace layout

/// The 12-byte name of the PKCS#15 application DF.
const Bytes& pkcs15ApplicationId();

/// A card with MF, EF(DIR), the PKCS#15 DF and its directory files, the card-status EF, DF02
/// and the three PINs. Throws std::invalid_argument for a PIN that does not fit 4..8 digits,
/// and for an iso card that would hash.
CardState personalise(const Personalisation& options = {});

} // namespace vcard
