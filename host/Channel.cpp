#include "host/Channel.hpp"

#include "mw/Exception.hpp"

namespace host {

Channel::Channel(std::unique_ptr<card::ICardTransport> transport)
    : transport_(std::move(transport)) {
    if (!transport_) {
        MW_THROW(mw::NullPointerException, "channel without a transport");
    }
}

card::ICardTransport& Channel::transport(int index) const {
    if (index != 0) {
        MW_THROW(mw::IllegalArgumentException, "only the basic channel 0 is open");
    }
    return *transport_;
}

} // namespace host
