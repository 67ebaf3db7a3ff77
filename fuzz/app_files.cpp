// The application's directory files as a card holds them: the first byte
// picks EF(ODF), EF(TokenInfo), the PrKDF, PuKDF, CDF, DODF or AODF of a
// card with a key pair, the rest becomes that file's content. The
// application then opens, lists, reads and writes as a host would; it may
// fail only with card or application exceptions that say what went wrong.
#include "AppOnCard.hpp"
#include "HostileCard.hpp"
#include "vcard/CardImage.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::uint8_t fileIds[][2] = {{0x50, 0x31}, {0x50, 0x32}, {0x44, 0x00}, {0x44, 0x01},
                                       {0x44, 0x04}, {0x44, 0x07}, {0x44, 0x08}};
constexpr std::size_t maxFileSize = 0x7FFF;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    vcard::CardState state = vcard::CardImage::parse(support::cardWithKeyImage(), "base");
    const std::uint8_t* fid = fileIds[data[0] % (sizeof fileIds / sizeof fileIds[0])];
    vcard::CardFile& file = state.files.selectByPath({0x50, 0x15, fid[0], fid[1]}, true);
    file.content.assign(data + 1, data + 1 + std::min(size - 1, maxFileSize));
    state.files.resetSelection();
    const support::AppOnCard card(std::move(state));
    for (const std::string& error : hostile::runWorkload(card).errors) {
        if (error.rfind("unclear: ", 0) == 0) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::abort();
        }
    }
    return 0;
}
