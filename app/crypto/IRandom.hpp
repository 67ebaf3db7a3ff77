#ifndef APP_CRYPTO_IRANDOM_HPP
#define APP_CRYPTO_IRANDOM_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <cstddef>

namespace card {
class IChannel;
}

namespace app {
namespace crypto {

// Random bytes from the card.
class MW_EXPORT_TYPE IRandom {
public:
    virtual ~IRandom() = default;
    virtual mw::ByteBuffer generate(const card::IChannel& channel, std::size_t count) const = 0;
};

} // namespace crypto
} // namespace app

#endif
