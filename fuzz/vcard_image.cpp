// Feeds arbitrary text to the card image loader. It may only refuse with ImageError; an image it
// accepts serialises to text that loads to the same card again.
#include "vcard/CardImage.hpp"

#include <cstdlib>
#include <optional>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::optional<vcard::CardState> state;
    try {
        state.emplace(vcard::CardImage::parse(text, "fuzz input"));
    } catch (const vcard::ImageError&) {
        return 0;
    }
    const std::string saved = vcard::CardImage::serialise(*state);
    if (vcard::CardImage::serialise(vcard::CardImage::parse(saved, "its serialisation")) != saved)
        std::abort();
    return 0;
}
