// The plugin as a host loads it: what it hands out outlives it, and its
// configuration is read across the library boundary. (Over PC/SC, the plugin
// serves p15tool.pcsc and the PKCS#11 module's PcscSlotTest.)
#include "PluginOnCard.hpp"

#include <boost/make_shared.hpp>

namespace {

// The host's configuration store, holding at most "plugin.conf".
struct Configuration : plugin::IConfigurationSource {
    explicit Configuration(boost::optional<std::string> text = boost::none)
        : text(std::move(text)) {}
    boost::optional<std::string> readFile(const std::string& name) const override {
        return name == "plugin.conf" ? text : boost::none;
    }
    boost::optional<std::string> text;
};

// Card and applet hosts get one application; an applet host's outlives the
// plugin that made it. Select order: GetApplications.HandsBackOneApplication...
TEST(PluginEndToEnd, HandsTheHostOneApplicationThatOutlivesThePlugin) {
    const support::AppOnCard card(vcard::personalise());
    std::vector<boost::shared_ptr<app::IApplication>> applications;
    {
        const host::PluginLoader loader(P15APP_PATH, Configuration());
        ASSERT_EQ(loader.getApplications(card.card, *card.channel).size(), 1u);
        auto applet =
            boost::make_shared<host::iso7816::Applet>(card.session, host::iso7816::pkcs15Aid());
        applications = loader.getApplications(card.card, applet, *card.channel);
    }
    ASSERT_EQ(applications.size(), 1u);
    EXPECT_EQ(applications[0]->getLabel(), "Arvel PKCS#15 Application");
    EXPECT_EQ(applications[0]->getAid(), host::iso7816::pkcs15Aid());
    EXPECT_NO_THROW(applications[0]->select(*card.channel));
    applications.clear(); // released through the plugin's deleter, library still mapped
}

TEST(PluginEndToEnd, AConfigurationThatLeavesWipingOpenIsRefusedAcrossTheBoundary) {
    const support::AppOnCard card(vcard::personalise());
    const std::string waiting = "[WaitingTime]\nReselect=100\n";
    const host::PluginLoader loader(P15APP_PATH, Configuration(waiting));
    try {
        loader.getApplications(card.card, *card.channel);
        FAIL() << "accepted a configuration without Objects.wipeForce";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("No such node"), std::string::npos) << e.what();
    }
    loader.plugin().configure(Configuration(waiting + "[Objects]\nwipeForce=false\n"));
    EXPECT_EQ(loader.getApplications(card.card, *card.channel).size(), 1u)
        << "the last configuration obtained wins";
}

} // namespace
