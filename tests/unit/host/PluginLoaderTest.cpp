// The loader's failures and where it finds plugin.conf. Loading, configuring and releasing a
// plugin: PluginEndToEnd (e2e), with the real one.
#include "host/loader/PluginLoader.hpp"
#include "host/loader/ConfigurationSource.hpp"

#include <boost/optional/optional_io.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

std::string loadError(const std::string& library) {
    try {
        host::PluginLoader loader(library, host::ConfigurationSource());
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

// A scratch HOME, and no P15_CONF.
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
        fs::remove_all(dir_);
    }
    std::string write(const std::string& name, const std::string& content) const {
        const fs::path path = dir_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << content;
        return path;
    }

    fs::path dir_;
    std::string savedHome_;
};

TEST_F(PluginLoaderTest, MissingLibraryOrSymbolNamesLibrarySymbolAndCause) {
    const std::string missing = dir_ / "libnothing.so";
    EXPECT_THAT(loadError(missing), AllOf(HasSubstr(missing), HasSubstr("No such file")));
    // A shared library that is no plugin.
    EXPECT_THAT(loadError("libm.so.6"), AllOf(HasSubstr("libm.so.6"), HasSubstr("QueryPlugin"),
                                              HasSubstr("undefined symbol")));
}

TEST_F(PluginLoaderTest, PluginConfIsLookedUpOptionThenEnvironmentThenHome) {
    const std::string option = write("opt/plugin.conf", "option");
    setenv("P15_CONF", write("env/plugin.conf", "environment").c_str(), 1);
    write(".config/p15kit/plugin.conf", "home");
    EXPECT_EQ(host::ConfigurationSource(option).readFile("plugin.conf"), std::string("option"));
    EXPECT_EQ(host::ConfigurationSource(dir_ / "absent.conf").readFile("plugin.conf"),
              std::string("environment"));
    unsetenv("P15_CONF");
    EXPECT_EQ(host::ConfigurationSource().readFile("plugin.conf"), std::string("home"));
    EXPECT_FALSE(host::ConfigurationSource().readFile("other.conf"));
    fs::remove_all(dir_ / ".config");
    EXPECT_FALSE(host::ConfigurationSource().readFile("plugin.conf"));
}

} // namespace
