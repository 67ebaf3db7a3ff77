// The loader's failures and where it finds plugin.conf. Loading, configuring and releasing a
// plugin: PluginEndToEnd (e2e), with the real one.
#include "host/loader/PluginLoader.hpp"
#include "host/loader/ConfigurationSource.hpp"

#include <boost/optional/optional_io.hpp>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using ::testing::HasSubstr;

std::string loadError(const std::string& library) {
    try {
        host::PluginLoader loader(library, host::ConfigurationSource());
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

// A scratch directory with an environment that points nowhere real.
class PluginLoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/p15-loader-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        savedHome_ = std::getenv("HOME") ? std::getenv("HOME") : "";
        setenv("HOME", dir_.c_str(), 1);
        unsetenv("P15_CONF");
    }
    void TearDown() override {
        setenv("HOME", savedHome_.c_str(), 1);
        unsetenv("P15_CONF");
        std::system(("rm -rf " + dir_).c_str());
    }
    std::string write(const std::string& name, const std::string& content) const {
        const std::string path = dir_ + "/" + name;
        std::system(("mkdir -p $(dirname " + path + ")").c_str());
        std::ofstream(path) << content;
        return path;
    }

    std::string dir_;
    std::string savedHome_;
};

TEST_F(PluginLoaderTest, MissingLibraryOrSymbolNamesLibrarySymbolAndCause) {
    const std::string missing = dir_ + "/libnothing.so";
    const std::string noLibrary = loadError(missing);
    EXPECT_THAT(noLibrary, HasSubstr(missing));
    EXPECT_THAT(noLibrary, HasSubstr("No such file"));

    const std::string noSymbol = loadError(NO_QUERY_PLUGIN_PATH);
    EXPECT_THAT(noSymbol, HasSubstr(NO_QUERY_PLUGIN_PATH));
    EXPECT_THAT(noSymbol, HasSubstr("QueryPlugin"));
    EXPECT_THAT(noSymbol, HasSubstr("undefined symbol"));
}

TEST_F(PluginLoaderTest, PluginConfIsLookedUpOptionThenEnvironmentThenHome) {
    const std::string option = write("opt/plugin.conf", "option");
    const std::string environment = write("env/plugin.conf", "environment");
    write(".config/p15kit/plugin.conf", "home");
    setenv("P15_CONF", environment.c_str(), 1);

    EXPECT_EQ(host::ConfigurationSource(option).readFile("plugin.conf"), std::string("option"));
    EXPECT_EQ(host::ConfigurationSource(dir_ + "/absent.conf").readFile("plugin.conf"),
              std::string("environment"));
    unsetenv("P15_CONF");
    EXPECT_EQ(host::ConfigurationSource().readFile("plugin.conf"), std::string("home"));
    EXPECT_FALSE(host::ConfigurationSource().readFile("other.conf"));
    std::system(("rm -rf " + dir_ + "/.config").c_str());
    EXPECT_FALSE(host::ConfigurationSource().readFile("plugin.conf"));
}

} // namespace
