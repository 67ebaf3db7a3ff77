// The plugin as a host loads it, in-process and through pcscd.
#include "CardFixture.hpp"

#include "app/IApplication.hpp"
#include "host/loader/PluginLoader.hpp"

#include <boost/make_shared.hpp>
#include <memory>

namespace {

// The host's configuration store, holding at most "plugin.conf".
class Configuration : public plugin::IConfigurationSource {
public:
    explicit Configuration(boost::optional<std::string> text = boost::none)
        : text_(std::move(text)) {}
    boost::optional<std::string> readFile(const std::string& name) const override {
        return name == "plugin.conf" ? text_ : boost::none;
    }

private:
    boost::optional<std::string> text_;
};

class PluginEndToEnd : public hosttest::CardTest {
protected:
    std::unique_ptr<host::PluginLoader> load(const plugin::IConfigurationSource& source) const {
        return std::make_unique<host::PluginLoader>(P15APP_PATH, source);
    }
};

// Card and applet hosts get one application; an applet host's outlives the
// plugin that made it. Select order: GetApplications.HandsBackOneApplication...
TEST_P(PluginEndToEnd, HandsTheHostOneApplicationThatOutlivesThePlugin) {
    std::vector<boost::shared_ptr<app::IApplication>> applications;
    {
        const auto loader = load(Configuration());
        ASSERT_EQ(loader->getApplications(card_, *channel_).size(), 1u);
        auto applet =
            boost::make_shared<host::iso7816::Applet>(session_, host::iso7816::pkcs15Aid());
        applications = loader->getApplications(card_, applet, *channel_);
    }
    ASSERT_EQ(applications.size(), 1u);
    EXPECT_EQ(applications[0]->getLabel(), "Arvel PKCS#15 Application");
    EXPECT_EQ(applications[0]->getAid(), host::iso7816::pkcs15Aid());
    EXPECT_NO_THROW(applications[0]->select(*channel_));
    applications.clear(); // released through the plugin's deleter, library still mapped
}

TEST_P(PluginEndToEnd, AConfigurationThatLeavesWipingOpenIsRefusedAcrossTheBoundary) {
    const auto loader = load(Configuration(std::string("[WaitingTime]\nReselect=100\n")));
    try {
        loader->getApplications(card_, *channel_);
        FAIL() << "accepted a configuration without Objects.wipeForce";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("No such node"), std::string::npos) << e.what();
    }
    loader->plugin().configure(
        Configuration(std::string("[WaitingTime]\nReselect=100\n[Objects]\nwipeForce=false\n")));
    EXPECT_EQ(loader->getApplications(card_, *channel_).size(), 1u)
        << "the last configuration obtained wins";
}

INSTANTIATE_TEST_SUITE_P(Transports, PluginEndToEnd,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);

} // namespace
