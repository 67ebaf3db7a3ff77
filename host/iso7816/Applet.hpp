#ifndef HOST_ISO7816_APPLET_HPP
#define HOST_ISO7816_APPLET_HPP

#include "card/IApplet.hpp"
#include "host/iso7816/CardSession.hpp"

namespace host {
namespace iso7816 {

// An application that selects itself by its identifier (applet mode).
class Applet : public card::IApplet {
public:
    Applet(boost::shared_ptr<CardSession> session, mw::ByteBuffer aid);

    void select(const card::IChannel& channel) const override;
    std::vector<std::string> getAlgorithms() const override;
    bool hasInterface(const std::string& name) const override;
    boost::shared_ptr<card::IInterface> getInterface(const std::string& name) const override;

    const mw::ByteBuffer& aid() const { return aid_; }

private:
    boost::shared_ptr<CardSession> session_;
    mw::ByteBuffer aid_;
};

// A0 00 00 00 63 "PKCS-15": the identifier of the PKCS#15 application.
mw::ByteBuffer pkcs15Aid();

} // namespace iso7816
} // namespace host

#endif
