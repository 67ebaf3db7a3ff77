#include "host/iso7816/CardRandom.hpp"

#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

constexpr std::size_t maxChallenge = 256;

} // namespace

mw::ByteBuffer CardRandom::generate(const card::IChannel& channel, std::size_t count) {
    const auto held = card::Transaction::join(channel);
    mw::ByteBuffer random;
    while (random.size() < count) {
        const std::size_t chunk = std::min(maxChallenge, count - random.size());
        random.append(
            IsoCommand("Get Challenge", 0x84, 0x00, 0x00).expecting(chunk).executeExact(held));
    }
    return random;
}

} // namespace iso7816
} // namespace host
