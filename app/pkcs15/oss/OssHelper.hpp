#ifndef APP_PKCS15_OSS_OSSHELPER_HPP
#define APP_PKCS15_OSS_OSSHELPER_HPP

#include "app/AccessControlRule.hpp"
#include "app/ISecurityCondition.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"

#include <boost/shared_ptr.hpp>
#include <vector>

namespace app::pkcs15::oss {

// Converts access control rules and security conditions between their ASN.1
// values and the application's condition tree. Failures throw
// app::ApplicationException with app::ErrorText.
class OssHelper {
public:
    static boost::shared_ptr<app::ISecurityCondition>
    decodeSecurityCondition(const SecurityCondition* value);

    // Appends the decoded rules to `rules`; a failing rule stops the list,
    // the rules appended before it stay.
    static void decodeAccessControlRules(const std::vector<AccessControlRule>& value,
                                         std::vector<app::AccessControlRule>& rules);

    // Appends the encoded rules to `value`. A rule whose condition is empty or
    // Never grants nothing and is left out; Always cannot be expressed in
    // PKCS#15 and is refused.
    static void encodeAccessControlRules(const std::vector<app::AccessControlRule>& rules,
                                         std::vector<AccessControlRule>& value);

    static SecurityCondition encodeSecurityCondition(const app::ISecurityCondition& condition);
};

} // namespace app::pkcs15::oss

#endif
