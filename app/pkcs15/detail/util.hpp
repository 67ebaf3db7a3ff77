#ifndef APP_PKCS15_DETAIL_UTIL_HPP
#define APP_PKCS15_DETAIL_UTIL_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace card {
class CardException;
}

namespace app {
namespace pkcs15 {
namespace util {

// The card key reference of key id `kid` (0 to 31): 0x80 | kid. The flag is
// kept for callers that distinguish key kinds; both kinds get the top bit.
unsigned char encodeKID(unsigned char kid, bool privateKey);

// A file identifier or path as its bytes, most significant first: four bytes
// above FFFF, two above FF, one for other non-zero values, none for 0.
mw::ByteBuffer idToBytes(unsigned int id);

// The bytes of a text of hexadecimal digits, read pairwise from the left.
// An odd-length text gets a "0" before its last digit: "ABC" reads as AB 0C.
mw::ByteBuffer hexToBytes(std::string text);

// The card answered "file or application not found" (6A82).
bool isFileNotFound(const card::CardException& e);
// The card answered "file already exists" (6A89).
bool isFileAlreadyThere(const card::CardException& e);

} // namespace util
} // namespace pkcs15
} // namespace app

#endif
