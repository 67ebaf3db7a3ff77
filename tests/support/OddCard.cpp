#include "OddCard.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardImage.hpp"

#include <algorithm>
#include <stdexcept>

namespace p15test {

namespace {

namespace oss = app::pkcs15::oss;

vcard::Bytes& directoryFile(vcard::CardState& state, std::uint8_t fileIdLow) {
    return state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, 0x44, fileIdLow}, true).content;
}

const vcard::Bytes undecodableEntry{0x30, 0x03, 0x02, 0x01, 0x05};
const vcard::Bytes ecKeyEntry{0xA0, 0x06, 0x30, 0x04, 0x30, 0x00, 0x30, 0x00};

} // namespace

OddEntries addOddEntries(const std::string& image, bool breakCdf) {
    vcard::CardState state = vcard::CardImage::load(image);
    vcard::Bytes& prkdf = directoryFile(state, 0x00);
    oss::PrivateKeyType key;
    const std::size_t used = oss::decode(prkdf.data(), prkdf.size(), key);
    key.privateRSAKeyValue.classAttributes.misplacedComponents = {
        {{0xDF, 0x20, 0x02, 0xCA, 0xFE}, 0x04, 0}};
    vcard::Bytes rewritten = oss::encode(key);
    const OddEntries added{rewritten.size(), rewritten.size() + undecodableEntry.size()};
    rewritten.insert(rewritten.end(), undecodableEntry.begin(), undecodableEntry.end());
    rewritten.insert(rewritten.end(), ecKeyEntry.begin(), ecKeyEntry.end());
    rewritten.insert(rewritten.end(), prkdf.begin() + static_cast<std::ptrdiff_t>(used),
                     prkdf.end());
    const auto grown = static_cast<std::ptrdiff_t>(rewritten.size() - prkdf.size());
    if (std::any_of(rewritten.end() - grown, rewritten.end(),
                    [](std::uint8_t byte) { return byte != 0x00 && byte != 0xFF; })) {
        throw std::runtime_error("EF(PrKDF) has no room for the odd entries");
    }
    rewritten.resize(prkdf.size());
    prkdf = rewritten;
    if (breakCdf) {
        directoryFile(state, 0x04).at(1) = 0x84; // four length octets: far beyond the file
    }
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
    return added;
}

} // namespace p15test
