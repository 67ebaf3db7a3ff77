#ifndef HOST_LOADER_CONFIGURATIONSOURCE_HPP
#define HOST_LOADER_CONFIGURATIONSOURCE_HPP

#include "app/plugin/IConfigurationSource.hpp"

#include <optional>
#include <string>
#include <vector>

namespace host {

// The host's configuration files for its plugins. "plugin.conf" is looked
// up at the path the user gave as an option, then at $P15_CONF, then as
// ~/.config/p15kit/plugin.conf; other files only in ~/.config/p15kit. The
// first file that exists wins; none is no value.
class ConfigurationSource : public plugin::IConfigurationSource {
public:
    explicit ConfigurationSource(std::optional<std::string> optionPath = std::nullopt);

    boost::optional<std::string> readFile(const std::string& fileName) const override;
    // The places looked at for `fileName`, in order.
    std::vector<std::string> candidates(const std::string& fileName) const;

private:
    std::optional<std::string> optionPath_;
};

} // namespace host

#endif
