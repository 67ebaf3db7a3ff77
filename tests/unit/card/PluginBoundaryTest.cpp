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

// A loaded plugin library and its filled descriptor.
class LoadedPlugin {
public:
    explicit LoadedPlugin(const char* path)
        : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) {
            ADD_FAILURE() << "dlopen " << path << ": " << dlerror();
            return;
        }
        auto query = reinterpret_cast<plugin::QueryPluginFunction>(
            dlsym(handle_, plugin::queryPluginSymbol));
        if (query == nullptr) {
            ADD_FAILURE() << "no QueryPlugin in " << path;
            return;
        }
        query(&descriptor);
    }
    ~LoadedPlugin() {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    bool loaded() const { return descriptor.create != nullptr; }

    plugin::PluginDescriptor descriptor{0xFFFFFFFF, 0xFFFFFFFF, nullptr, nullptr};

private:
    void* handle_;
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

TEST(PluginBoundary, HostRunsThePluginLifecycle) {
    LoadedPlugin library(P15APP_PATH);
    ASSERT_TRUE(library.loaded());
    EXPECT_EQ(library.descriptor.version, 0u);
    EXPECT_EQ(library.descriptor.flags, 0u);
    ASSERT_NE(library.descriptor.destroy, nullptr);

    plugin::IPlugin* created = library.descriptor.create();
    ASSERT_NE(created, nullptr);
    EXPECT_NE(dynamic_cast<app::IApplicationPlugin*>(created), nullptr);

    FakeConfigurationSource withConf(std::string("[WaitingTime]\nReselect=100\n"));
    FakeConfigurationSource withoutConf(boost::none);
    created->configure(withConf);
    created->configure(withoutConf);
    EXPECT_EQ(withConf.requested, std::vector<std::string>{"plugin.conf"});
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
    ASSERT_TRUE(library.loaded());
    plugin::IPlugin* throwing = library.descriptor.create();
    ASSERT_NE(throwing, nullptr);
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
