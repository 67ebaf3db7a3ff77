#ifndef HOST_ISO7816_CARD_HPP
#define HOST_ISO7816_CARD_HPP

#include "card/ICard.hpp"
#include "host/iso7816/CardSession.hpp"

namespace host {
namespace iso7816 {

// A card in card mode: applications are selected by their identifier.
class Card : public card::ICard {
public:
    // `channel` carries the commands the card object sends on its own (the
    // GET DATA of the algorithm list).
    explicit Card(boost::shared_ptr<const card::IChannel> channel);
    explicit Card(boost::shared_ptr<CardSession> session);

    void selectApplication(const card::IChannel& channel, const mw::ByteBuffer& aid) const override;
    std::vector<std::string> getAlgorithms() const override;
    bool hasInterface(const std::string& name) const override;
    boost::shared_ptr<card::IInterface> getInterface(const std::string& name) const override;

private:
    boost::shared_ptr<CardSession> session_;
};

} // namespace iso7816
} // namespace host

#endif
