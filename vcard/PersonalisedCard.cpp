// Defined beside the personalisation rather than in VirtualCard.cpp, so that
// the card itself (vcard_core) does not depend on the code that issues it.
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

namespace vcard {

std::unique_ptr<VirtualCard> VirtualCard::personalised() {
    return std::make_unique<VirtualCard>(personalise());
}

} // namespace vcard
