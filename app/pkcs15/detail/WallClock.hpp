#ifndef APP_PKCS15_DETAIL_WALLCLOCK_HPP
#define APP_PKCS15_DETAIL_WALLCLOCK_HPP

#include <cstdint>
#include <functional>

namespace app {
namespace pkcs15 {
namespace detail {

// Milliseconds since 1970-01-01 00:00 UTC, for the throttles that spare the
// card repeated commands. Tests replace the source to drive time.
class WallClock {
public:
    using Source = std::function<std::int64_t()>;

    static std::int64_t nowMillis();
    // Installs a time source; an empty one restores the system clock.
    static void setSource(Source source);
};

} // namespace detail
} // namespace pkcs15
} // namespace app

#endif
