#include "app/TransformSecurityCondition.hpp"

#include "app/ApplicationException.hpp"
#include "app/SecurityConditions.hpp"

#include <boost/make_shared.hpp>

namespace app {

namespace {

namespace cs = card::service;

class Transform : public ISecurityConditionVisitor {
public:
    void visit(const AndSecurityCondition& condition) override {
        result = boost::make_shared<cs::AndSecurityCondition>(operands(condition.getOperands()));
    }
    void visit(const OrSecurityCondition& condition) override {
        result = boost::make_shared<cs::OrSecurityCondition>(operands(condition.getOperands()));
    }
    void visit(const NotSecurityCondition& condition) override {
        result = boost::make_shared<cs::NotSecurityCondition>(operand(condition.getOperand()));
    }
    void visit(const AuthIdSecurityCondition& condition) override {
        if (condition.getAuthId().empty()) {
            APP_THROW(ApplicationException, "transform: empty authId");
        }
        cs::PinReference pin;
        pin.reference = condition.getAuthId().front();
        result = boost::make_shared<cs::PinRefSecurityCondition>(std::move(pin));
    }
    void visit(const AlwaysSecurityCondition&) override {
        result = boost::make_shared<cs::AlwaysSecurityCondition>();
    }
    void visit(const NeverSecurityCondition&) override {
        result = boost::make_shared<cs::NeverSecurityCondition>();
    }

    cs::SecurityConditionPtr result;

private:
    static cs::SecurityConditionPtr operand(const SecurityConditionPtr& condition) {
        if (!condition) {
            APP_THROW(ApplicationException, "transform: input parameter is null");
        }
        return transform(*condition);
    }
    static cs::SecurityConditionList operands(const SecurityConditionList& conditions) {
        cs::SecurityConditionList transformed;
        for (const SecurityConditionPtr& condition : conditions) {
            transformed.push_back(operand(condition));
        }
        return transformed;
    }
};

} // namespace

card::service::SecurityConditionPtr transform(const ISecurityCondition& condition) {
    Transform visitor;
    condition.accept(visitor);
    return visitor.result;
}

} // namespace app
