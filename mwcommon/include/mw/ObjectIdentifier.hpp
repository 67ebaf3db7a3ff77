#ifndef MW_OBJECTIDENTIFIER_HPP
#define MW_OBJECTIDENTIFIER_HPP

#include "mw/Exception.hpp"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace mw {

namespace detail {

[[noreturn]] inline void invalidObjectIdentifier() {
    MW_THROW(IllegalArgumentException, "invalid object identifier");
}

// One decimal arc up to the next dot; at most 18 digits, so it fits 64 bits.
inline std::uint64_t readArc(std::istringstream& text) {
    std::string arc;
    std::getline(text, arc, '.');
    if (arc.empty() || arc.size() > 18 || (arc.size() > 1 && arc[0] == '0')) {
        invalidObjectIdentifier();
    }
    for (char digit : arc) {
        if (std::isdigit(static_cast<unsigned char>(digit)) == 0) {
            invalidObjectIdentifier();
        }
    }
    return std::stoull(arc);
}

inline void appendBase128(std::vector<std::uint8_t>& out, std::uint64_t arc) {
    std::uint8_t groups[10];
    std::size_t count = 0;
    do {
        groups[count++] = static_cast<std::uint8_t>(arc & 0x7F);
        arc >>= 7;
    } while (arc != 0);
    while (count > 1) {
        out.push_back(static_cast<std::uint8_t>(groups[--count] | 0x80));
    }
    out.push_back(groups[0]);
}

} // namespace detail

/// The dotted text ("1.2.840.113549") of an OBJECT IDENTIFIER's content
/// octets. The first two arcs share one subidentifier (40 * first + second).
/// Throws IllegalArgumentException for no octets, a last octet that promises
/// more, or an arc beyond 64 bits.
inline std::string objectIdentifierText(const std::uint8_t* octets, std::size_t size) {
    if (size == 0 || (octets[size - 1] & 0x80) != 0) {
        detail::invalidObjectIdentifier();
    }
    std::string text;
    std::uint64_t arc = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (arc > (UINT64_MAX >> 7)) {
            detail::invalidObjectIdentifier();
        }
        arc = (arc << 7) | (octets[i] & 0x7F);
        if ((octets[i] & 0x80) != 0) {
            continue;
        }
        if (text.empty()) {
            const std::uint64_t first = arc < 80 ? arc / 40 : 2;
            text = std::to_string(first) + '.' + std::to_string(arc - 40 * first);
        } else {
            text += '.' + std::to_string(arc);
        }
        arc = 0;
    }
    return text;
}

/// The content octets of the OBJECT IDENTIFIER written as dotted text: at
/// least two arcs, decimal without leading zeros, the first 0, 1 or 2 and
/// the second below 40 unless the first is 2. Throws IllegalArgumentException
/// for anything else.
inline std::vector<std::uint8_t> objectIdentifierFromText(const std::string& text) {
    std::istringstream arcs(text);
    const std::uint64_t first = detail::readArc(arcs);
    if (arcs.eof()) {
        detail::invalidObjectIdentifier();
    }
    const std::uint64_t second = detail::readArc(arcs);
    if (first > 2 || (first < 2 && second >= 40)) {
        detail::invalidObjectIdentifier();
    }
    std::vector<std::uint8_t> octets;
    detail::appendBase128(octets, first * 40 + second);
    while (!arcs.eof()) {
        detail::appendBase128(octets, detail::readArc(arcs));
    }
    return octets;
}

} // namespace mw

#endif
