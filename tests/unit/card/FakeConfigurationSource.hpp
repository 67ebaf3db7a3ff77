#ifndef TESTS_UNIT_CARD_FAKECONFIGURATIONSOURCE_HPP
#define TESTS_UNIT_CARD_FAKECONFIGURATIONSOURCE_HPP

#include "app/plugin/IConfigurationSource.hpp"

#include <string>
#include <vector>

// A host's configuration store holding at most "plugin.conf"; remembers
// which files the plugin asked for.
class FakeConfigurationSource : public plugin::IConfigurationSource {
public:
    explicit FakeConfigurationSource(boost::optional<std::string> pluginConf)
        : pluginConf_(std::move(pluginConf)) {}

    boost::optional<std::string> readFile(const std::string& fileName) const override {
        requested.push_back(fileName);
        return fileName == "plugin.conf" ? pluginConf_ : boost::none;
    }

    mutable std::vector<std::string> requested;

private:
    boost::optional<std::string> pluginConf_;
};

#endif
