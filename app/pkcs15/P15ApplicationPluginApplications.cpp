#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app::pkcs15 {

namespace {

const char* const applicationLabel = "Arvel PKCS#15 Application";

// Selects the card-status file 9999 below the application DF. Besides 9000,
// answers with SW1 61 or 9F count as success on purpose: cards signal
// "more data" there although no data was asked for.
void selectEFCardStatus(const card::IChannel& channel) {
    const card::Apdu select(0x00, 0xA4, 0x02, 0x0C, mw::ByteBuffer{0x99, 0x99});
    const boost::shared_ptr<mw::ByteBuffer> response = channel.transport(0).transmit(select);
    const unsigned short sw = card::statusWord(*response);
    const unsigned char sw1 = static_cast<unsigned char>(sw >> 8);
    if (sw != 0x9000 && sw1 != 0x61 && sw1 != 0x9F) {
        CARD_THROW(card::CardException() << card::Command("Select") << card::StatusCode(sw));
    }
}

// Applications are released the way the host releases plugin objects:
// through their virtual destructor.
void destroyApplication(P15Application* application) {
    delete application;
}

std::vector<boost::shared_ptr<IApplication>> selectedApplication(P15Application* created,
                                                                 const card::IChannel& channel) {
    boost::shared_ptr<P15Application> application(created, &destroyApplication);
    application->select(channel);
    selectEFCardStatus(channel);
    return {application};
}

} // namespace

std::vector<boost::shared_ptr<IApplication>>
P15ApplicationPlugin::getApplications(const boost::shared_ptr<const card::ICard>&,
                                      const boost::shared_ptr<const card::IApplet>& applet,
                                      const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return selectedApplication(new P15Application(applet, applicationLabel, configuration_),
                               channel);
}

std::vector<boost::shared_ptr<IApplication>>
P15ApplicationPlugin::getApplications(const boost::shared_ptr<const card::ICard>& card,
                                      const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return selectedApplication(new P15Application(card, applicationLabel, configuration_), channel);
}

} // namespace app::pkcs15
