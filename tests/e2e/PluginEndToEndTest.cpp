#include "CardFixture.hpp"

#include "app/IApplication.hpp"
#include "host/loader/PluginLoader.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>
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

TEST_P(PluginEndToEnd, HandsTheHostOneSelectedApplication) {
    const auto loader = load(Configuration());
    const auto applications = loader->getApplications(card_, *channel_);

    ASSERT_EQ(applications.size(), 1u);
    EXPECT_EQ(applications[0]->getLabel(), "Arvel PKCS#15 Application");
    EXPECT_EQ(applications[0]->getAid(), host::iso7816::pkcs15Aid());
    EXPECT_NO_THROW(applications[0]->select(*channel_));
}

// An applet host's application, kept after the plugin that made it is gone.
TEST_P(PluginEndToEnd, AppletHostsGetApplicationsThatOutliveThePlugin) {
    std::vector<boost::shared_ptr<app::IApplication>> applications;
    {
        const auto loader = load(Configuration());
        auto applet =
            boost::make_shared<host::iso7816::Applet>(session_, host::iso7816::pkcs15Aid());
        applications = loader->getApplications(card_, applet, *channel_);
    }
    ASSERT_EQ(applications.size(), 1u);
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

TEST_P(PluginEndToEnd, WipingAnEmptyApplicationLeavesTheCardUsable) {
    const auto loader = load(Configuration());
    const auto application = loader->getApplications(card_, *channel_).at(0);
    application->wipe(*channel_);
    application->clearCache();
    EXPECT_EQ(loader->getApplications(card_, *channel_).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Transports, PluginEndToEnd,
                         ::testing::Values(hosttest::TransportKind::InProcess,
                                           hosttest::TransportKind::Pcsc),
                         hosttest::transportName);

} // namespace
