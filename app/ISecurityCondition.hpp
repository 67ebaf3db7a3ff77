#ifndef APP_ISECURITYCONDITION_HPP
#define APP_ISECURITYCONDITION_HPP

#include <boost/shared_ptr.hpp>
#include <vector>

namespace app {

class ISecurityConditionVisitor;

// A node of the application's security condition tree.
class ISecurityCondition {
public:
    virtual ~ISecurityCondition() = default;
    virtual void accept(ISecurityConditionVisitor& visitor) const = 0;
};

using SecurityConditionPtr = boost::shared_ptr<ISecurityCondition>;
using SecurityConditionList = std::vector<SecurityConditionPtr>;

} // namespace app

#endif
