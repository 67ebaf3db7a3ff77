#include "app/pkcs15/impl/RandomGenerator.hpp"

#include "card/service/ICryptographyService.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {
namespace impl {

RandomGenerator::RandomGenerator(boost::shared_ptr<card::service::ICardRandom> cardRandom)
    : cardRandom_(std::move(cardRandom)) {}

mw::ByteBuffer RandomGenerator::generate(const card::IChannel& channel, std::size_t count) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return cardRandom_->generate(channel, count);
}

} // namespace impl
} // namespace pkcs15
} // namespace app
