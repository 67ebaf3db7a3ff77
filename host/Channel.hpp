#ifndef HOST_CHANNEL_HPP
#define HOST_CHANNEL_HPP

#include "card/IChannel.hpp"

#include <memory>

namespace host {

// The channel to one card over one transport; only the basic channel (0)
// exists.
class Channel : public card::IChannel {
public:
    explicit Channel(std::unique_ptr<card::ICardTransport> transport);

    card::ICardTransport& transport(int index) const override;

private:
    std::unique_ptr<card::ICardTransport> transport_;
};

} // namespace host

#endif
