#ifndef HOST_ISO7816_CARDCAPABILITIES_HPP
#define HOST_ISO7816_CARDCAPABILITIES_HPP

#include "mw/ByteBuffer.hpp"

namespace host {
namespace iso7816 {

// What a card says of itself in the historical bytes of its ATR: the card
// capabilities (compact-TLV tag 7) after a category indicator of 00 or 80.
// An ATR that does not parse, or says nothing, announces nothing: the card
// is driven with short APDUs.
struct CardCapabilities {
    bool commandChaining = false;
    bool extendedLength = false;

    static CardCapabilities fromAtr(const mw::ByteBuffer& atr);
};

} // namespace iso7816
} // namespace host

#endif
