#ifndef TOOLS_P15TOOL_TEXT_HPP
#define TOOLS_P15TOOL_TEXT_HPP

#include <cstdint>
#include <string>
#include <vector>

namespace p15tool {

using Bytes = std::vector<std::uint8_t>;

// How the bytes of a card's string are to be read.
enum class CardEncoding {
    unknown, // UTF-8 when they are valid UTF-8, Latin-1 otherwise
    utf8,    // UTF8String; bytes that are not UTF-8 are read as Latin-1
    latin1,  // T61String, and the 8-bit types cards put in its place
    bmp,     // BMPString: UTF-16 big-endian
};

// Card text as valid UTF-8 whatever the card used, without the NUL padding
// some cards leave at the end of a label.
std::string displayText(const std::string& cardBytes,
                        CardEncoding encoding = CardEncoding::unknown);

bool isValidUtf8(const std::string& text);

// "3F005015" for the bytes 3F 00 50 15.
std::string hex(const Bytes& bytes);

// True for a non-empty identifier of printable ASCII only, which reads
// better as text than as hex.
bool isPrintableAscii(const Bytes& bytes);

} // namespace p15tool

#endif
