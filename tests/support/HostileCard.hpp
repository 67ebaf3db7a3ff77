#ifndef TESTS_SUPPORT_HOSTILECARD_HPP
#define TESTS_SUPPORT_HOSTILECARD_HPP

// A hostile card: the virtual card behind a transport that spoils some of
// its answers (truncated, oversized, random bytes, random status words,
// endless 61xx, no answer at all). Every choice comes from a Choices source,
// a seed or a fuzzer's input, so that every failure replays.

#include "card/IChannel.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace app::pkcs15 {
class P15Application;
}

namespace support {
struct AppOnCard;
}

namespace hostile {

class Choices {
public:
    virtual ~Choices() = default;
    // A number below `bound`; 0 when bound is 0.
    virtual std::uint32_t below(std::uint32_t bound) = 0;
};

struct SeededChoices : Choices {
    explicit SeededChoices(std::uint64_t seed)
        : engine(seed) {}
    std::uint32_t below(std::uint32_t bound) override {
        return bound == 0 ? 0 : static_cast<std::uint32_t>(engine() % bound);
    }
    std::mt19937_64 engine;
};

// Reads the decisions from a fuzzer's input; once it is used up, every
// answer is honest.
struct InputChoices : Choices {
    InputChoices(const std::uint8_t* data, std::size_t size)
        : data(data)
        , size(size) {}
    std::uint32_t below(std::uint32_t bound) override;
    const std::uint8_t* data;
    std::size_t size, position = 0;
};

// The commands sent and the message of every operation that failed.
struct Outcome {
    std::size_t commands = 0;
    std::vector<std::string> errors;
};

using Attempt = std::function<void(const char* name, const std::function<void()>& operation)>;

// What a host reads on opening the card, one attempt per kind of object: PIN
// status, each public key, each private key's key file, the token
// information, each certificate and data object (the whole of its file).
void readEverything(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                    const Attempt& attempt);

// Opens the application and runs what a host does: readEverything, verify,
// sign, encipher and decipher, draw random bytes, relabel a key, change and
// unblock a PIN, read the card's algorithms. A card or application exception
// without a text or status word is returned as "unclear: ..."; one of the
// foundation's names its cause; anything else escapes.
Outcome runWorkload(const support::AppOnCard& card);

// runWorkload on a fresh support::cardWithKeyImage(), behind a transport
// spoiling about one answer in a power of two from 1 to 256 chosen per case.
// Over 5000 commands in one case (a hang in the making) throw a
// std::logic_error, which no caller can swallow as a card exception.
Outcome runCase(Choices& choices);

} // namespace hostile

#endif
