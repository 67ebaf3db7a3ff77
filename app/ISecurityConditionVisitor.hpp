#ifndef APP_ISECURITYCONDITIONVISITOR_HPP
#define APP_ISECURITYCONDITIONVISITOR_HPP

namespace app {

class AndSecurityCondition;
class OrSecurityCondition;
class NotSecurityCondition;
class AuthIdSecurityCondition;
class AlwaysSecurityCondition;
class NeverSecurityCondition;

class ISecurityConditionVisitor {
public:
    virtual ~ISecurityConditionVisitor() = default;
    virtual void visit(const AndSecurityCondition& condition) = 0;
    virtual void visit(const OrSecurityCondition& condition) = 0;
    virtual void visit(const NotSecurityCondition& condition) = 0;
    virtual void visit(const AuthIdSecurityCondition& condition) = 0;
    virtual void visit(const AlwaysSecurityCondition& condition) = 0;
    virtual void visit(const NeverSecurityCondition& condition) = 0;
};

} // namespace app

#endif
