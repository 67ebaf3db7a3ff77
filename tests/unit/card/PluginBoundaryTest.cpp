// The plugin as a host sees it: loaded with dlopen, reached only through
// QueryPlugin, exceptions caught by type across the library boundary.
#include "FakeConfigurationSource.hpp"
#include "app/IApplicationPlugin.hpp"
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

// A loaded plugin library and its filled descriptor (create stays null when
// loading failed).
struct LoadedPlugin {
    explicit LoadedPlugin(const char* path)
        : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        const auto query = reinterpret_cast<plugin::QueryPluginFunction>(
            handle ? dlsym(handle, plugin::queryPluginSymbol) : nullptr);
        if (query == nullptr) {
            ADD_FAILURE() << "no QueryPlugin from " << path << ": " << dlerror();
            return;
        }
        query(&descriptor);
    }
    ~LoadedPlugin() {
        if (handle != nullptr) {
            dlclose(handle);
        }
    }
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    void* handle;
    plugin::PluginDescriptor descriptor{0xFFFFFFFF, 0xFFFFFFFF, nullptr, nullptr};
};

struct DynamicSymbols {
    std::set<std::string> functions;
    std::set<std::string> objects;
};

// The defined dynamic symbols of a shared library, as nm lists them.
DynamicSymbols dynamicSymbols(const std::string& library) {
    const std::string command = std::string(NM_PATH) + " -D --defined-only " + library;
    FILE* pipe = popen(command.c_str(), "r");
    DynamicSymbols symbols;
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return symbols;
    }
    char line[1024];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address, type, name;
        fields >> address >> type >> name;
        const bool function = type == "T" || type == "W" || type == "i";
        (function ? symbols.functions : symbols.objects).insert(name);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return symbols;
}

bool isTypeInformation(const std::string& symbol) {
    return symbol.rfind("_ZTI", 0) == 0 || symbol.rfind("_ZTS", 0) == 0;
}

} // namespace

// The descriptor a host checks, the one file configure asks for, and a
// destroy that takes null.
TEST(PluginBoundary, HostRunsThePluginLifecycle) {
    LoadedPlugin library(P15APP_PATH);
    ASSERT_NE(library.descriptor.create, nullptr);
    EXPECT_EQ(library.descriptor.version, 0u);
    EXPECT_EQ(library.descriptor.flags, 0u);
    plugin::IPlugin* created = library.descriptor.create();
    EXPECT_NE(dynamic_cast<app::IApplicationPlugin*>(created), nullptr);
    FakeConfigurationSource withoutConf(boost::none);
    created->configure(withoutConf);
    EXPECT_EQ(withoutConf.requested, std::vector<std::string>{"plugin.conf"});
    created->readersChanged();
    created->cardInserted();
    created->cardRemoved();
    library.descriptor.destroy(created);
    library.descriptor.destroy(nullptr);
}

TEST(PluginBoundary, OnlyQueryPluginAndTypeInformationAreExported) {
    const DynamicSymbols symbols = dynamicSymbols(P15APP_PATH);
    EXPECT_EQ(symbols.functions, std::set<std::string>{"QueryPlugin"});
    for (const std::string& object : symbols.objects) {
        EXPECT_TRUE(isTypeInformation(object)) << object;
    }
}

TEST(PluginBoundary, HostCatchesCardExceptionsThrownInsideAPlugin) {
    const DynamicSymbols symbols = dynamicSymbols(THROWING_PLUGIN_PATH);
    EXPECT_EQ(symbols.functions, std::set<std::string>{"QueryPlugin"});
    EXPECT_EQ(symbols.objects.count("_ZTIN4card13CardExceptionE"), 1u);

    LoadedPlugin library(THROWING_PLUGIN_PATH);
    ASSERT_NE(library.descriptor.create, nullptr);
    plugin::IPlugin* throwing = library.descriptor.create();
    try {
        throwing->configure(FakeConfigurationSource(boost::none));
        ADD_FAILURE() << "not thrown";
    } catch (const card::CardException& e) {
        EXPECT_STREQ(*boost::get_error_info<card::Command>(e), "Select");
        EXPECT_EQ(*boost::get_error_info<card::StatusCode>(e), 0x6A82);
        const std::string text = boost::diagnostic_information(e);
        EXPECT_NE(text.find("] = File or application not found\n"), std::string::npos) << text;
        EXPECT_NE(text.find("ThrowingPlugin.cpp"), std::string::npos) << text;
    }
    try {
        throwing->readersChanged();
        ADD_FAILURE() << "not thrown";
    } catch (const card::CardException& e) {
        EXPECT_STREQ(e.what(), "invalid data exception");
        EXPECT_NE(dynamic_cast<const card::InvalidDataException*>(&e), nullptr);
    }
    library.descriptor.destroy(throwing);
}
