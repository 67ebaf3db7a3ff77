#ifndef MW_HEX_HPP
#define MW_HEX_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Exception.hpp"

#include <cctype>
#include <string>

namespace mw {

// "00A4020C" for the bytes 00 A4 02 0C.
inline std::string toHex(const ByteBuffer& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

namespace detail {
inline unsigned char hexDigitValue(char digit) {
    const int c = std::toupper(static_cast<unsigned char>(digit));
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned char>(c - '0');
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned char>(c - 'A' + 10);
    }
    MW_THROW(IllegalArgumentException, "invalid hex digit");
}
} // namespace detail

// The bytes written as hexadecimal digits, either case; blanks between the
// digits are ignored so that "00 A4 02 0C" reads as written.
inline ByteBuffer fromHex(const std::string& text) {
    std::string digits;
    for (char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0) {
        MW_THROW(IllegalArgumentException, "odd number of hex digits");
    }
    ByteBuffer bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes.data()[i] = static_cast<unsigned char>(detail::hexDigitValue(digits[2 * i]) << 4 |
                                                     detail::hexDigitValue(digits[2 * i + 1]));
    }
    return bytes;
}

} // namespace mw

#endif
