#pragma once

#include <string>

namespace vcard {

/// How a card speaks ISO 7816: fixed when it is personalised, kept in its image.
enum class CardProfile {
    /// The command set of docs/card-profile.md, sections 1 to 7.
    Native,
    /// As common cards of other makes answer (docs/card-profile.md, section 8): no GET DATA,
    /// algorithm references of its own that MANAGE SECURITY ENVIRONMENT requires, no try counter
    /// in its answers, 8-byte challenges, short APDUs only, FCPs with proprietary tags.
    Iso,
};

/// The profile's name in images and on command lines: "native" or "iso".
const char* profileName(CardProfile profile);
/// The profile of that name; std::invalid_argument naming the known ones for any other.
CardProfile profileFromName(const std::string& name);

} // namespace vcard
