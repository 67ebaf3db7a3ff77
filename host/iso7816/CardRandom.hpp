#ifndef HOST_ISO7816_CARDRANDOM_HPP
#define HOST_ISO7816_CARDRANDOM_HPP

#include "card/service/ICryptographyService.hpp"

namespace host {
namespace iso7816 {

/// Random bytes from GET CHALLENGE: at most 256 asked per command, and as
/// many commands as the card needs when it answers fewer (any non-empty
/// answer is taken); an empty answer is a card::InvalidDataException.
class CardRandom : public card::service::ICardRandom {
public:
    mw::ByteBuffer generate(const card::IChannel& channel, std::size_t count) override;
};

} // namespace iso7816
} // namespace host

#endif
