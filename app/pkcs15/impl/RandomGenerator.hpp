#ifndef APP_PKCS15_IMPL_RANDOMGENERATOR_HPP
#define APP_PKCS15_IMPL_RANDOMGENERATOR_HPP

#include "app/crypto/IRandom.hpp"

#include <boost/shared_ptr.hpp>

namespace card {
namespace service {
class ICardRandom;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace impl {

// Random bytes as the card produces them; any limit on the count is the
// card service's.
class RandomGenerator : public app::crypto::IRandom {
public:
    explicit RandomGenerator(boost::shared_ptr<card::service::ICardRandom> cardRandom);

    mw::ByteBuffer generate(const card::IChannel& channel, std::size_t count) const override;

private:
    boost::shared_ptr<card::service::ICardRandom> cardRandom_;
};

} // namespace impl
} // namespace pkcs15
} // namespace app

#endif
