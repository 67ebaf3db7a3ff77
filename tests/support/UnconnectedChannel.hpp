#ifndef TESTS_SUPPORT_UNCONNECTEDCHANNEL_HPP
#define TESTS_SUPPORT_UNCONNECTEDCHANNEL_HPP

#include "card/IChannel.hpp"

#include <stdexcept>

// A channel to no card, for work that must not reach one.
class UnconnectedChannel : public card::IChannel {
public:
    card::ICardTransport& transport(int) const override {
        throw std::logic_error("a card was reached through an unconnected channel");
    }
};

#endif
