#ifndef APP_ACCESSCONTROLRULE_HPP
#define APP_ACCESSCONTROLRULE_HPP

#include "app/ISecurityCondition.hpp"

#include <cstdint>
#include <utility>

namespace app {

// Which operations (a combination of the AccessMode bits) need which condition.
class AccessControlRule {
public:
    enum AccessMode : std::uint16_t { Read = 0x4, Update = 0x2, Execute = 0x1 };

    AccessControlRule() = default;
    AccessControlRule(std::uint16_t accessMode, SecurityConditionPtr condition)
        : accessMode_(accessMode)
        , condition_(std::move(condition)) {}

    std::uint16_t getAccessMode() const { return accessMode_; }
    void setAccessMode(std::uint16_t accessMode) { accessMode_ = accessMode; }
    // May be empty.
    const SecurityConditionPtr& getSecurityCondition() const { return condition_; }
    void setSecurityCondition(SecurityConditionPtr condition) { condition_ = std::move(condition); }

private:
    std::uint16_t accessMode_ = 0;
    SecurityConditionPtr condition_;
};

} // namespace app

#endif
