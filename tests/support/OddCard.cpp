#include "OddCard.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <algorithm>

namespace p15test {

OddEntries addOddEntries(const std::string& image, bool breakCdf) {
    namespace oss = app::pkcs15::oss;
    vcard::CardState state = vcard::CardImage::load(image);
    const auto file = [&state](std::uint8_t id) -> vcard::Bytes& {
        return state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, id}, true).content;
    };
    vcard::Bytes& prkdf = file(0x00);
    oss::PrivateKeyType key;
    oss::decode(prkdf.data(), prkdf.size(), key);
    key.privateRSAKeyValue.classAttributes.misplacedComponents = {{{0xDF, 0x20, 0x00}, 0x04, 0}};
    vcard::Bytes odd = oss::encode(key);
    const OddEntries added{odd.size(), odd.size() + 5};
    odd.insert(odd.end(), {0x30, 0x03, 0x02, 0x01, 0x05, 0xA0, 0x04, 0x30, 0x02, 0x30, 0x00});
    std::copy(odd.begin(), odd.end(), prkdf.begin()); // the key is the only entry
    if (breakCdf) {
        file(0x04).at(1) = 0x84;
    }
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
    return added;
}

} // namespace p15test
