#include "host/iso7816/CardRandom.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

constexpr std::size_t maxChallenge = 256;
const char* const getChallengeName = "Get Challenge";

} // namespace

// Cards answer with a fixed length of their own (often 8 bytes) whatever Le
// asks, so every non-empty answer counts and the loop asks again for the rest.
mw::ByteBuffer CardRandom::generate(const card::IChannel& channel, std::size_t count) {
    const auto held = card::Transaction::join(channel);
    mw::ByteBuffer random;
    while (random.size() < count) {
        const std::size_t wanted = count - random.size();
        const mw::ByteBuffer answer = IsoCommand(getChallengeName, 0x84, 0x00, 0x00)
                                          .expecting(std::min(maxChallenge, wanted))
                                          .execute(held);
        if (answer.empty()) {
            CARD_THROW(card::InvalidDataException()
                       << card::Command(getChallengeName)
                       << card::ErrorText("empty answer to GET CHALLENGE"));
        }
        random.append(answer.data(), std::min(answer.size(), wanted));
    }
    return random;
}

} // namespace iso7816
} // namespace host
