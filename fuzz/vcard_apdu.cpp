// Drives a personalised virtual card with a sequence of commands, framed as the vpcd driver
// frames them: a 2-byte big-endian length, then the payload; a 1-byte payload is a control code
// (0 power off, 1 power on, 2 reset). Every command gets at least a status word, and whatever the
// commands built, the image loader loads again.
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <cstdlib>

namespace {

// Key generation takes the card up to seconds per key: the unit tests cover it.
bool generatesAKey(const vcard::Bytes& command) {
    return command.size() >= 3 && command[1] == 0x46 && command[2] == 0x00;
}

// CREATE FILE and key import are what can take a card towards its limits.
bool buildsOnTheCard(const vcard::Bytes& command) {
    return command.size() >= 2 && (command[1] == 0xE0 || command[1] == 0xDB);
}

void control(vcard::VirtualCard& card, std::uint8_t code) {
    if (code == 0)
        card.powerOff();
    else if (code == 1 || code == 2)
        card.reset();
}

void transmit(vcard::VirtualCard& card, const vcard::Bytes& command) {
    try {
        if (card.transmit(command).size() < 2)
            std::abort();
    } catch (const vcard::CardRemoved&) {
        if (card.isPoweredOn())
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vcard::VirtualCard card(vcard::personalise());
    bool built = false;
    std::size_t position = 0;
    while (size - position >= 2) {
        const std::size_t announced =
            static_cast<std::size_t>(data[position] << 8 | data[position + 1]);
        position += 2;
        const std::size_t length = std::min(announced, size - position);
        const vcard::Bytes payload(data + position, data + position + length);
        position += length;
        if (payload.size() == 1)
            control(card, payload[0]);
        else if (!generatesAKey(payload))
            transmit(card, payload);
        built = built || buildsOnTheCard(payload);
    }
    // Throws ImageError, which ends the run as a crash, if the commands built an unloadable card.
    if (built)
        vcard::CardImage::parse(vcard::CardImage::serialise(card.state()), "the fuzzed card");
    return 0;
}
