#include "host/loader/ConfigurationSource.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace host {

namespace {

const char* const pluginConf = "plugin.conf";
const char* const confVariable = "P15_CONF";

std::optional<std::string> readWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

} // namespace

ConfigurationSource::ConfigurationSource(std::optional<std::string> optionPath)
    : optionPath_(std::move(optionPath)) {}

std::vector<std::string> ConfigurationSource::candidates(const std::string& fileName) const {
    std::vector<std::string> paths;
    if (fileName == pluginConf) {
        if (optionPath_) {
            paths.push_back(*optionPath_);
        }
        if (const char* fromEnvironment = std::getenv(confVariable)) {
            paths.emplace_back(fromEnvironment);
        }
    }
    if (const char* home = std::getenv("HOME")) {
        paths.push_back(std::string(home) + "/.config/p15kit/" + fileName);
    }
    return paths;
}

boost::optional<std::string> ConfigurationSource::readFile(const std::string& fileName) const {
    for (const std::string& path : candidates(fileName)) {
        if (std::optional<std::string> content = readWhole(path)) {
            return *content;
        }
    }
    return boost::none;
}

} // namespace host
