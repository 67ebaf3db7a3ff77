#ifndef CARD_SERVICE_SECURITYCONDITIONS_HPP
#define CARD_SERVICE_SECURITYCONDITIONS_HPP

#include "card/service/PinReference.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <vector>

namespace card {
namespace service {

class AndSecurityCondition;
class OrSecurityCondition;
class NotSecurityCondition;
class PinRefSecurityCondition;
class AlwaysSecurityCondition;
class NeverSecurityCondition;

class MW_EXPORT_TYPE ISecurityConditionVisitor {
public:
    virtual ~ISecurityConditionVisitor() = default;
    virtual void visit(const AndSecurityCondition& condition) = 0;
    virtual void visit(const OrSecurityCondition& condition) = 0;
    virtual void visit(const NotSecurityCondition& condition) = 0;
    virtual void visit(const PinRefSecurityCondition& condition) = 0;
    virtual void visit(const AlwaysSecurityCondition& condition) = 0;
    virtual void visit(const NeverSecurityCondition& condition) = 0;
};

// A condition the card checks before it allows an access: the card layer's
// own vocabulary, handed to it inside creation parameters.
class MW_EXPORT_TYPE ISecurityCondition {
public:
    virtual ~ISecurityCondition() = default;
    virtual void accept(ISecurityConditionVisitor& visitor) const = 0;
};

using SecurityConditionPtr = boost::shared_ptr<const ISecurityCondition>;
using SecurityConditionList = std::vector<SecurityConditionPtr>;

class MW_EXPORT_TYPE AlwaysSecurityCondition : public ISecurityCondition {
public:
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }
};

class MW_EXPORT_TYPE NeverSecurityCondition : public ISecurityCondition {
public:
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }
};

// Satisfied while the PIN is verified.
class MW_EXPORT_TYPE PinRefSecurityCondition : public ISecurityCondition {
public:
    explicit PinRefSecurityCondition(PinReference pin)
        : pin_(std::move(pin)) {}
    const PinReference& pin() const { return pin_; }
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }

private:
    PinReference pin_;
};

class MW_EXPORT_TYPE NotSecurityCondition : public ISecurityCondition {
public:
    explicit NotSecurityCondition(SecurityConditionPtr operand)
        : operand_(std::move(operand)) {}
    const SecurityConditionPtr& operand() const { return operand_; }
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }

private:
    SecurityConditionPtr operand_;
};

class MW_EXPORT_TYPE AndSecurityCondition : public ISecurityCondition {
public:
    explicit AndSecurityCondition(SecurityConditionList operands)
        : operands_(std::move(operands)) {}
    const SecurityConditionList& operands() const { return operands_; }
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }

private:
    SecurityConditionList operands_;
};

class MW_EXPORT_TYPE OrSecurityCondition : public ISecurityCondition {
public:
    explicit OrSecurityCondition(SecurityConditionList operands)
        : operands_(std::move(operands)) {}
    const SecurityConditionList& operands() const { return operands_; }
    void accept(ISecurityConditionVisitor& visitor) const override { visitor.visit(*this); }

private:
    SecurityConditionList operands_;
};

} // namespace service
} // namespace card

#endif
