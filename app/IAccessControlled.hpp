#ifndef APP_IACCESSCONTROLLED_HPP
#define APP_IACCESSCONTROLLED_HPP

#include "app/AccessControlRule.hpp"
#include "mw/Visibility.hpp"

#include <boost/optional.hpp>
#include <vector>

namespace app {

using AccessControlRules = std::vector<AccessControlRule>;

// Something whose operations are guarded by access control rules.
class MW_EXPORT_TYPE IAccessControlled {
public:
    virtual ~IAccessControlled() = default;
    // Absent when the object carries no rules.
    virtual const boost::optional<AccessControlRules>& getAccessControlRules() const = 0;
    virtual void setAccessControlRules(const AccessControlRules& rules) = 0;
};

} // namespace app

#endif
