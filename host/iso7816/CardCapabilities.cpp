#include "host/iso7816/CardCapabilities.hpp"

#include <optional>

namespace host {
namespace iso7816 {

namespace {

constexpr unsigned char compactTlvWithStatus = 0x00; // three status bytes close the TLVs
constexpr unsigned char compactTlvOnly = 0x80;
constexpr unsigned char cardCapabilitiesTag = 0x7;
constexpr std::size_t statusIndicatorLength = 3;
// Third software function table of the card capabilities.
constexpr unsigned char chainingBit = 0x80;
constexpr unsigned char extendedLengthBit = 0x40;

struct Range {
    std::size_t begin;
    std::size_t end;
};

// The historical bytes: T0 names their count, and each TDi announces the
// interface bytes of the next group (ISO/IEC 7816-3).
std::optional<Range> historicalBytes(const mw::ByteBuffer& atr) {
    if (atr.size() < 2) {
        return std::nullopt;
    }
    const std::size_t count = atr.get(1) & 0x0F;
    std::size_t at = 1;
    unsigned char indicator = atr.get(1);
    for (;;) {
        std::size_t present = 0;
        for (unsigned char bit = 0x10; bit != 0; bit <<= 1) {
            present += (indicator & bit) != 0;
        }
        const bool more = (indicator & 0x80) != 0;
        at += present;
        if (!more) {
            break;
        }
        if (at >= atr.size()) {
            return std::nullopt;
        }
        indicator = atr.get(at);
    }
    ++at;
    if (at + count > atr.size()) {
        return std::nullopt;
    }
    return Range{at, at + count};
}

} // namespace

CardCapabilities CardCapabilities::fromAtr(const mw::ByteBuffer& atr) {
    CardCapabilities capabilities;
    const std::optional<Range> historical = historicalBytes(atr);
    if (!historical || historical->begin == historical->end) {
        return capabilities;
    }
    const unsigned char category = atr.get(historical->begin);
    std::size_t end = historical->end;
    if (category == compactTlvWithStatus && end - historical->begin > statusIndicatorLength) {
        end -= statusIndicatorLength;
    } else if (category != compactTlvOnly) {
        return capabilities;
    }
    for (std::size_t at = historical->begin + 1; at < end;) {
        const unsigned char tag = atr.get(at) >> 4;
        const std::size_t length = atr.get(at) & 0x0F;
        if (at + 1 + length > end) {
            break;
        }
        if (tag == cardCapabilitiesTag && length >= 3) {
            const unsigned char functions = atr.get(at + 3);
            capabilities.commandChaining = (functions & chainingBit) != 0;
            capabilities.extendedLength = (functions & extendedLengthBit) != 0;
        }
        at += 1 + length;
    }
    return capabilities;
}

} // namespace iso7816
} // namespace host
