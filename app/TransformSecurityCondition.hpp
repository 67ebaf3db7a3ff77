#ifndef APP_TRANSFORMSECURITYCONDITION_HPP
#define APP_TRANSFORMSECURITYCONDITION_HPP

#include "app/ISecurityCondition.hpp"
#include "card/service/SecurityConditions.hpp"

namespace app {

// The card layer's condition equivalent to an application condition, for
// the creation parameters of files and keys. An authId names the card PIN
// reference by its first byte, as it stands: it is not looked up among the
// PIN objects, and further bytes are ignored.
card::service::SecurityConditionPtr transform(const ISecurityCondition& condition);

} // namespace app

#endif
