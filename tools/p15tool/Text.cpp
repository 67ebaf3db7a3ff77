#include "tools/p15tool/Text.hpp"

#include <algorithm>

namespace p15tool {

namespace {

// Latin-1 bytes are the code points U+0000 to U+00FF.
std::string latin1ToUtf8(const std::string& bytes) {
    std::string out;
    for (unsigned char byte : bytes) {
        if (byte < 0x80) {
            out += static_cast<char>(byte);
        } else {
            out += static_cast<char>(0xC0 | (byte >> 6));
            out += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return out;
}

std::string withoutTrailingNuls(std::string text) {
    const auto last = text.find_last_not_of('\0');
    text.erase(last == std::string::npos ? 0 : last + 1);
    return text;
}

} // namespace

bool isValidUtf8(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        std::uint32_t c = 0;
        if (byte < 0x80) {
            length = 1, c = byte;
        } else if ((byte & 0xE0) == 0xC0) {
            length = 2, c = byte & 0x1F;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3, c = byte & 0x0F;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4, c = byte & 0x07;
        } else {
            return false;
        }
        if (i + length > text.size()) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            c = c << 6 | (next & 0x3F);
        }
        static const std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        const bool surrogate = c >= 0xD800 && c < 0xE000;
        if (c < smallest[length] || c > 0x10FFFF || surrogate) {
            return false;
        }
        i += length;
    }
    return true;
}

std::string displayText(const std::string& cardBytes) {
    const std::string text = withoutTrailingNuls(cardBytes);
    return isValidUtf8(text) ? text : latin1ToUtf8(text);
}

std::string hex(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

bool isPrintableAscii(const Bytes& bytes) {
    return !bytes.empty() && std::all_of(bytes.begin(), bytes.end(),
                                         [](std::uint8_t b) { return b >= 0x20 && b < 0x7F; });
}

} // namespace p15tool
