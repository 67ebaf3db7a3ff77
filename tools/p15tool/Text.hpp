#ifndef TOOLS_P15TOOL_TEXT_HPP
#define TOOLS_P15TOOL_TEXT_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace p15tool {

using Bytes = std::vector<std::uint8_t>;

// Card text as valid UTF-8 whatever the card used: UTF-8 when the bytes are
// valid UTF-8, otherwise Latin-1 (T61String and the 8-bit strings cards
// write), without the NUL padding some cards leave at the end of a label.
std::string displayText(const std::string& cardBytes);

bool isValidUtf8(const std::string& text);

// "3F005015" for the bytes 3F 00 50 15.
std::string hex(const Bytes& bytes);

// True for a non-empty identifier of printable ASCII only, which reads
// better as text than as hex.
bool isPrintableAscii(const Bytes& bytes);

} // namespace p15tool

#endif
