#include "vcard/Bytes.hpp"

#include <algorithm>
#include <stdexcept>

namespace vcard {

std::string toHex(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (std::uint8_t b : bytes) {
        hex.push_back(digits[b >> 4]);
        hex.push_back(digits[b & 0x0F]);
    }
    return hex;
}

namespace {
int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    throw std::invalid_argument(std::string("not a hexadecimal digit: '") + c + "'");
}
} // namespace

Bytes fromHex(std::string_view hex) {
    if (hex.size() % 2 != 0)
        throw std::invalid_argument("hexadecimal text of odd length");
    Bytes bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(hexDigit(hex[2 * i]) << 4 | hexDigit(hex[2 * i + 1]));
    return bytes;
}

void wipe(Bytes& bytes) {
    volatile std::uint8_t* p = bytes.data();
    for (std::size_t i = 0; i < bytes.size(); ++i)
        p[i] = 0;
    bytes.clear();
}

void wipe(std::string& text) {
    volatile char* p = text.data();
    for (std::size_t i = 0; i < text.size(); ++i)
        p[i] = 0;
    text.clear();
}

} // namespace vcard
