#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vcard {

using Bytes = std::vector<std::uint8_t>;

/// Upper-case hexadecimal, two digits per byte, no separators.
std::string toHex(const Bytes& bytes);

/// Inverse of toHex (either case); throws std::invalid_argument on odd length or a non-hex digit.
Bytes fromHex(const std::string& hex);

/// Overwrites the bytes with zeros before the memory goes back to the allocator.
void wipe(Bytes& bytes);

} // namespace vcard
