#ifndef APP_SECURITYCONDITIONS_HPP
#define APP_SECURITYCONDITIONS_HPP

#include "app/ISecurityCondition.hpp"
#include "app/ISecurityConditionVisitor.hpp"

#include <cstdint>
#include <utility>
#include <vector>

namespace app {

// Each concrete condition calls the visitor's overload for its own class.
template <class Derived> class VisitableSecurityCondition : public ISecurityCondition {
public:
    void accept(ISecurityConditionVisitor& visitor) const override {
        visitor.visit(static_cast<const Derived&>(*this));
    }
};

// Satisfied once the PIN object with this authId is verified.
class AuthIdSecurityCondition : public VisitableSecurityCondition<AuthIdSecurityCondition> {
public:
    explicit AuthIdSecurityCondition(std::vector<std::uint8_t> authId)
        : authId_(std::move(authId)) {}
    const std::vector<std::uint8_t>& getAuthId() const { return authId_; }

private:
    std::vector<std::uint8_t> authId_;
};

class NotSecurityCondition : public VisitableSecurityCondition<NotSecurityCondition> {
public:
    explicit NotSecurityCondition(SecurityConditionPtr operand)
        : operand_(std::move(operand)) {}
    const SecurityConditionPtr& getOperand() const { return operand_; }

private:
    SecurityConditionPtr operand_;
};

// Operands of And and Or keep their order.
template <class Derived>
class CompositeSecurityCondition : public VisitableSecurityCondition<Derived> {
public:
    explicit CompositeSecurityCondition(SecurityConditionList operands)
        : operands_(std::move(operands)) {}
    const SecurityConditionList& getOperands() const { return operands_; }

private:
    SecurityConditionList operands_;
};

class AndSecurityCondition : public CompositeSecurityCondition<AndSecurityCondition> {
public:
    using CompositeSecurityCondition::CompositeSecurityCondition;
};

class OrSecurityCondition : public CompositeSecurityCondition<OrSecurityCondition> {
public:
    using CompositeSecurityCondition::CompositeSecurityCondition;
};

class AlwaysSecurityCondition : public VisitableSecurityCondition<AlwaysSecurityCondition> {};

class NeverSecurityCondition : public VisitableSecurityCondition<NeverSecurityCondition> {};

} // namespace app

#endif
