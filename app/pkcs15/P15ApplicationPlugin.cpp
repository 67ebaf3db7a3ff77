#include "app/pkcs15/P15ApplicationPlugin.hpp"

#include "app/pkcs15/P15Application.hpp"
#include "app/plugin/IConfigurationSource.hpp"
#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>
#include <new>

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

P15ApplicationPlugin::P15ApplicationPlugin()
    : namePattern_("PKCS15") {}

P15ApplicationPlugin::~P15ApplicationPlugin() = default;

plugin::IPlugin* P15ApplicationPlugin::create() noexcept {
    try {
        return new (std::nothrow) P15ApplicationPlugin();
    } catch (...) {
        // Compiling the name pattern allocates too; the host is told about
        // exhausted memory by a null plugin, never by an exception.
        return nullptr;
    }
}

void P15ApplicationPlugin::destroy(plugin::IPlugin* plugin) noexcept {
    delete plugin;
}

void P15ApplicationPlugin::configure(const plugin::IConfigurationSource& source) {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    boost::optional<std::string> text = source.readFile("plugin.conf");
    log.addParamOut("plugin.conf", static_cast<bool>(text));
    if (text) {
        configuration_ = std::move(*text);
    }
}

// The host's reader and card events need no action: every application the
// plugin hands out is independent of the plugin afterwards.
void P15ApplicationPlugin::readersChanged() {}
void P15ApplicationPlugin::cardInserted() {}
void P15ApplicationPlugin::cardRemoved() {}

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
