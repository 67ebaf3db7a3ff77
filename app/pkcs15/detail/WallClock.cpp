#include "app/pkcs15/detail/WallClock.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>

namespace app {
namespace pkcs15 {
namespace detail {

namespace {

std::int64_t systemMillis() {
    using namespace boost::posix_time;
    static const ptime epoch(boost::gregorian::date(1970, 1, 1));
    return (microsec_clock::universal_time() - epoch).total_milliseconds();
}

WallClock::Source& source() {
    static WallClock::Source current;
    return current;
}

} // namespace

std::int64_t WallClock::nowMillis() {
    return source() ? source()() : systemMillis();
}

void WallClock::setSource(Source newSource) {
    source() = std::move(newSource);
}

} // namespace detail
} // namespace pkcs15
} // namespace app
