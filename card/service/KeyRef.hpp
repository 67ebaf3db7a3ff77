#ifndef CARD_SERVICE_KEYREF_HPP
#define CARD_SERVICE_KEYREF_HPP

#include "mw/ByteBuffer.hpp"

#include <optional>

namespace card {
namespace service {

// The card's reference to one key. Copied, never shared.
struct KeyRef {
    // Key reference byte of the card's commands (0x80 | key id for keys the
    // application allocates).
    unsigned char keyReference = 0;
    unsigned short modulusBits = 0;
    // Two-byte identifier of the key's file.
    mw::ByteBuffer fileId;
    bool flag = false;
    /// The card's own reference of the algorithm to use the key with, for
    /// MANAGE SECURITY ENVIRONMENT (tag 80). Empty: the card layer's own
    /// choice, which is none on a card that lists no algorithms itself.
    std::optional<unsigned char> algorithmReference;
};

} // namespace service
} // namespace card

#endif
