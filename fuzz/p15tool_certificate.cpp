// A certificate as `p15tool list` reads it from a card: its names,
// validity and fingerprint, and any bytes as a Name. Only a
// std::runtime_error may refuse it; what is accepted must print as JSON
// (valid UTF-8) without a single control character for a terminal.
#include "tools/p15tool/CertificateText.hpp"

#include <cstdlib>
#include <stdexcept>

namespace {

void requirePrintable(const std::string& text) {
    for (const unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const mw::ByteBuffer bytes(data, size);
    try {
        const p15tool::Json described = p15tool::certificates::describe(bytes, true);
        requirePrintable(described.dump());
        requirePrintable(described["subject"].get<std::string>());
        requirePrintable(described["issuer"].get<std::string>());
    } catch (const std::runtime_error&) {
    }
    try {
        requirePrintable(p15tool::Json(p15tool::certificates::nameText(bytes)).dump());
    } catch (const std::runtime_error&) {
    }
    return 0;
}
