#pragma once

#include "vcard/FileSystem.hpp"
#include "vcard/PinStore.hpp"

namespace vcard {

/// What the card keeps across power cycles, and so what its image holds.
struct CardState {
    FileSystem files;
    PinStore pins;
};

} // namespace vcard
