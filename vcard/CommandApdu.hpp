#pragma once

#include "vcard/Bytes.hpp"

#include <cstddef>
#include <cstdint>

namespace vcard {

/// A parsed command APDU, short or extended (ISO 7816-4 cases 1 to 4).
struct CommandApdu {
    std::uint8_t cla = 0;
    std::uint8_t ins = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    Bytes data;
    /// Ne: the most response bytes the host accepts; 0 when the command has no Le field.
    std::size_t ne = 0;
    bool hasLe = false;
    /// Whether Lc or Le came in extended form.
    bool extended = false;

    // The data may be a PIN or key material: it is zeroed whenever it is let go, on every path
    // out of the card, exceptions included.
    CommandApdu() = default;
    CommandApdu(const CommandApdu&) = default;
    CommandApdu(CommandApdu&&) = default;
    CommandApdu& operator=(const CommandApdu& other);
    CommandApdu& operator=(CommandApdu&& other);
    ~CommandApdu() { wipe(data); }

    /// Appends a chained part's data; the shorter buffer it outgrows is zeroed first.
    void appendData(const Bytes& more);

    /// Throws CardError(6700) for fewer than 4 bytes or lengths that do not add up.
    static CommandApdu parse(const Bytes& raw);

    /// Bit 5 of CLA: more parts of a command chain follow.
    bool chained() const { return (cla & 0x10) != 0; }
};

} // namespace vcard
