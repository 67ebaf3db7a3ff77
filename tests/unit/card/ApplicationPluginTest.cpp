#include "FakeConfigurationSource.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"

#include <gtest/gtest.h>
#include <memory>

using app::pkcs15::P15ApplicationPlugin;

TEST(P15ApplicationPlugin, StartsWithItsNamePatternAndNoConfiguration) {
    std::unique_ptr<plugin::IPlugin> created(P15ApplicationPlugin::create());
    auto* plugin = dynamic_cast<P15ApplicationPlugin*>(created.get());
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->namePattern().str(), "PKCS15");
    EXPECT_TRUE(boost::regex_search("PKCS15 application", plugin->namePattern()));
    EXPECT_EQ(plugin->configuration(), "");
}

TEST(P15ApplicationPlugin, LastSuppliedConfigurationWins) {
    P15ApplicationPlugin plugin;
    plugin.configure(FakeConfigurationSource(boost::none));
    EXPECT_EQ(plugin.configuration(), "");

    plugin.configure(FakeConfigurationSource(std::string("[Objects]\nwipeForce=1\n")));
    EXPECT_EQ(plugin.configuration(), "[Objects]\nwipeForce=1\n");

    plugin.configure(FakeConfigurationSource(boost::none));
    EXPECT_EQ(plugin.configuration(), "[Objects]\nwipeForce=1\n");

    plugin.configure(FakeConfigurationSource(std::string("")));
    EXPECT_EQ(plugin.configuration(), "");
}
