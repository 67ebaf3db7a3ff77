// The plugin as a host sees it: loaded with dlopen, reached only through QueryPlugin, exceptions
// caught by type across the library boundary (the real plugin through the loader: PluginEndToEnd).
#include "app/plugin/IConfigurationSource.hpp"
#include "app/plugin/IPlugin.hpp"
#include "app/plugin/PluginDescriptor.hpp"
#include "card/CardException.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>
#include <cstdio>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>

namespace {

// A host's configuration store holding at most "plugin.conf".
struct Configuration : plugin::IConfigurationSource {
    explicit Configuration(boost::optional<std::string> text)
        : text(std::move(text)) {}
    boost::optional<std::string> readFile(const std::string& name) const override {
        return name == "plugin.conf" ? text : boost::none;
    }
    boost::optional<std::string> text;
};

// The defined dynamic functions and objects of a shared library, as nm lists them.
std::pair<std::set<std::string>, std::set<std::string>> dynamicSymbols(const char* library) {
    const std::string command = std::string(NM_PATH) + " -D --defined-only " + library;
    FILE* pipe = popen(command.c_str(), "r");
    std::pair<std::set<std::string>, std::set<std::string>> symbols;
    char line[1024];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address, type, name;
        fields >> address >> type >> name;
        (type == "T" || type == "W" || type == "i" ? symbols.first : symbols.second).insert(name);
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return symbols;
}

} // namespace

// Both libraries export QueryPlugin and type information alone, the card exceptions' included.
TEST(PluginBoundary, OnlyQueryPluginAndTypeInformationAreExported) {
    for (const char* library : {P15APP_PATH, THROWING_PLUGIN_PATH}) {
        const auto [functions, objects] = dynamicSymbols(library);
        EXPECT_EQ(functions, std::set<std::string>{"QueryPlugin"}) << library;
        EXPECT_EQ(objects.count("_ZTIN4card13CardExceptionE"), 1u) << library;
        for (const std::string& object : objects)
            EXPECT_TRUE(object.rfind("_ZTI", 0) == 0 || object.rfind("_ZTS", 0) == 0) << object;
    }
}

TEST(PluginBoundary, HostCatchesCardExceptionsThrownInsideAPlugin) {
    void* handle = dlopen(THROWING_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    plugin::PluginDescriptor descriptor{};
    reinterpret_cast<plugin::QueryPluginFunction>(dlsym(handle, plugin::queryPluginSymbol))(
        &descriptor);
    plugin::IPlugin* throwing = descriptor.create();
    try {
        throwing->configure(Configuration(boost::none));
        ADD_FAILURE() << "not thrown";
    } catch (const card::CardException& e) {
        EXPECT_STREQ(*boost::get_error_info<card::Command>(e), "Select");
        EXPECT_EQ(*boost::get_error_info<card::StatusCode>(e), 0x6A82);
        const std::string text = boost::diagnostic_information(e);
        // The throw site, the command and the status word's table text alone, framed as tags.
        for (const char* shown : {"ThrowingPlugin.cpp", "[card::tag_command*] = Select\n",
                                  "[card::tag_status_code*] = File or application not found\n"})
            EXPECT_NE(text.find(shown), std::string::npos) << text;
        EXPECT_EQ(text.find("6A82"), std::string::npos) << text;
    }
    descriptor.destroy(throwing);
    dlclose(handle);
}
