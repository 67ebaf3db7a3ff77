#include "app/pkcs15/detail/util.hpp"

#include "app/ApplicationException.hpp"
#include "card/CardException.hpp"
#include "mw/Hex.hpp"

#include <boost/exception/get_error_info.hpp>

namespace app {
namespace pkcs15 {
namespace util {

unsigned char encodeKID(unsigned char kid, bool /*privateKey*/) {
    if (kid > 0x1F) {
        APP_THROW(ApplicationException, "invalid key reference");
    }
    return static_cast<unsigned char>(0x80 | kid);
}

mw::ByteBuffer idToBytes(unsigned int id) {
    const std::size_t length = id > 0xFFFF ? 4 : id > 0xFF ? 2 : id > 0 ? 1 : 0;
    mw::ByteBuffer bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes.data()[length - 1 - i] = static_cast<unsigned char>(id >> (8 * i));
    }
    return bytes;
}

mw::ByteBuffer hexToBytes(std::string text) {
    if (text.size() % 2 != 0) {
        text.insert(text.size() - 1, 1, '0');
    }
    return mw::fromHex(text);
}

namespace {

bool hasStatus(const card::CardException& e, unsigned short status) {
    const unsigned short* sw = boost::get_error_info<card::StatusCode>(e);
    return sw && *sw == status;
}

} // namespace

bool isFileNotFound(const card::CardException& e) {
    return hasStatus(e, 0x6A82);
}

bool isFileAlreadyThere(const card::CardException& e) {
    return hasStatus(e, 0x6A89);
}

} // namespace util
} // namespace pkcs15
} // namespace app
