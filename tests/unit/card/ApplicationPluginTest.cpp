#include "FakeConfigurationSource.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"

#include <gtest/gtest.h>

using app::pkcs15::P15ApplicationPlugin;

// A host may configure again at any time; a store without the file keeps
// what was read before, an empty file clears it.
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
