#ifndef APP_PLUGIN_ICONFIGURATIONSOURCE_HPP
#define APP_PLUGIN_ICONFIGURATIONSOURCE_HPP

#include "mw/Visibility.hpp"

#include <boost/optional.hpp>
#include <string>

namespace plugin {

// Supplied by the host: the configuration files it keeps for its plugins.
class MW_EXPORT_TYPE IConfigurationSource {
public:
    virtual ~IConfigurationSource() = default;
    // The content of the named file, or none when the host has no such file.
    virtual boost::optional<std::string> readFile(const std::string& fileName) const = 0;
};

} // namespace plugin

#endif
