#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vcard {

using Bytes = std::vector<std::uint8_t>;

/// Upper-case hexadecimal, two digits per byte, no separators.
std::string toHex(const Bytes& bytes);

/// Inverse of toHex (either case); throws std::invalid_argument on odd length or a non-hex digit.
Bytes fromHex(std::string_view hex);

/// Overwrites the bytes with zeros before the memory goes back to the allocator.
void wipe(Bytes& bytes);
/// The same for text that held a secret (an image's text, which holds PINs and keys).
void wipe(std::string& text);

} // namespace vcard
