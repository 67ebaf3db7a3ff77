#include "FakeConfigurationSource.hpp"
#include "app/pkcs15/P15ApplicationPlugin.hpp"

#include <gtest/gtest.h>

// A host may configure again at any time; a store without the file keeps
// what was read before, an empty file clears it.
TEST(P15ApplicationPlugin, LastSuppliedConfigurationWins) {
    app::pkcs15::P15ApplicationPlugin plugin;
    const std::string conf = "[Objects]\nwipeForce=1\n";
    for (const auto& [supplied, kept] :
         {std::pair<boost::optional<std::string>, std::string>{boost::none, ""},
          {conf, conf},
          {boost::none, conf},
          {std::string(), ""}}) {
        plugin.configure(FakeConfigurationSource(supplied));
        EXPECT_EQ(plugin.configuration(), kept);
    }
}
