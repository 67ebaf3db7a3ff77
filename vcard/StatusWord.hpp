#pragma once

#include <cstdint>
#include <stdexcept>

namespace vcard {

/// The status words of the card profile (docs/card-profile.md, section 2).
namespace sw {
constexpr std::uint16_t ok = 0x9000;
constexpr std::uint16_t endOfFile = 0x6282;
/// Wrong PIN, from a card that tells no try counter.
constexpr std::uint16_t verificationFailed = 0x6300;
constexpr std::uint16_t memoryFailure = 0x6581;
constexpr std::uint16_t wrongLength = 0x6700;
constexpr std::uint16_t lastCommandOfChainExpected = 0x6883;
constexpr std::uint16_t incompatibleWithFile = 0x6981;
constexpr std::uint16_t securityNotSatisfied = 0x6982;
constexpr std::uint16_t blocked = 0x6983;
constexpr std::uint16_t conditionsNotSatisfied = 0x6985;
constexpr std::uint16_t noCurrentEf = 0x6986;
constexpr std::uint16_t wrongData = 0x6A80;
constexpr std::uint16_t functionNotSupported = 0x6A81;
constexpr std::uint16_t notFound = 0x6A82;
constexpr std::uint16_t notEnoughMemory = 0x6A84;
constexpr std::uint16_t wrongP1P2 = 0x6A86;
constexpr std::uint16_t referenceNotFound = 0x6A88;
constexpr std::uint16_t fileExists = 0x6A89;
constexpr std::uint16_t dfNameExists = 0x6A8A;
constexpr std::uint16_t offsetOutsideFile = 0x6B00;
constexpr std::uint16_t insNotSupported = 0x6D00;
constexpr std::uint16_t claNotSupported = 0x6E00;
constexpr std::uint16_t noPreciseDiagnosis = 0x6F00;
/// Wrong Le: the card answers exactly `count` bytes.
constexpr std::uint16_t exactLength(std::uint8_t count) {
    return 0x6C00 | count;
}
constexpr std::uint16_t triesLeft(unsigned tries) {
    return 0x63C0 | (tries & 0x0F);
}
} // namespace sw

/// A command refused with a status word. Thrown inside command processing and turned into the
/// response there; it never leaves VirtualCard::transmit.
class CardError : public std::exception {
public:
    explicit CardError(std::uint16_t statusWord)
        : statusWord_(statusWord) {}
    std::uint16_t statusWord() const { return statusWord_; }
    const char* what() const noexcept override { return "command refused by the virtual card"; }

private:
    std::uint16_t statusWord_;
};

} // namespace vcard
