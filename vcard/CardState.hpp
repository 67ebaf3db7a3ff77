#pragma once

#include "vcard/CardProfile.hpp"
#include "vcard/FileSystem.hpp"
#include "vcard/PinStore.hpp"

namespace vcard {

/// What the card keeps across power cycles, and so what its image holds.
struct CardState {
    FileSystem files;
    PinStore pins;
    /// The card hashes too: it offers SHA-1 to SHA-512 with RSA besides raw rsaEncryption.
    bool hashOnCard = false;
    CardProfile profile = CardProfile::Native;
};

} // namespace vcard
