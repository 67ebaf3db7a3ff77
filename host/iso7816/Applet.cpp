#include "host/iso7816/Applet.hpp"

namespace host {
namespace iso7816 {

mw::ByteBuffer pkcs15Aid() {
    return {0xA0, 0x00, 0x00, 0x00, 0x63, 0x50, 0x4B, 0x43, 0x53, 0x2D, 0x31, 0x35};
}

Applet::Applet(boost::shared_ptr<CardSession> session, mw::ByteBuffer aid)
    : session_(std::move(session))
    , aid_(std::move(aid)) {}

void Applet::select(const card::IChannel& channel) const {
    session_->selectApplication(channel, aid_);
}

std::vector<std::string> Applet::getAlgorithms() const {
    return session_->algorithms();
}

bool Applet::hasInterface(const std::string& name) const {
    return session_->hasService(name);
}

boost::shared_ptr<card::IInterface> Applet::getInterface(const std::string& name) const {
    return session_->service(name);
}

} // namespace iso7816
} // namespace host
