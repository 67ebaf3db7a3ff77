#include "host/iso7816/Card.hpp"

#include <boost/make_shared.hpp>

namespace host {
namespace iso7816 {

Card::Card(boost::shared_ptr<const card::IChannel> channel)
    : Card(boost::make_shared<CardSession>(std::move(channel))) {}

Card::Card(boost::shared_ptr<CardSession> session)
    : session_(std::move(session)) {}

void Card::selectApplication(const card::IChannel& channel, const mw::ByteBuffer& aid) const {
    session_->selectApplication(channel, aid);
}

std::vector<std::string> Card::getAlgorithms() const {
    return session_->algorithms();
}

bool Card::hasInterface(const std::string& name) const {
    return session_->hasService(name);
}

boost::shared_ptr<card::IInterface> Card::getInterface(const std::string& name) const {
    return session_->service(name);
}

} // namespace iso7816
} // namespace host
