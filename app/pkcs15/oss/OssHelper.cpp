#include "app/pkcs15/oss/OssHelper.hpp"

#include "app/ApplicationException.hpp"
#include "app/SecurityConditions.hpp"

#include <boost/make_shared.hpp>

namespace app::pkcs15::oss {

namespace {

constexpr std::uint16_t kMaxAccessMode = 0xF;
constexpr std::size_t kAccessModeBits = 3;

// Whether a rule can grant anything: Never and an empty condition cannot.
class GrantsAccess : public app::ISecurityConditionVisitor {
public:
    void visit(const app::AndSecurityCondition&) override {}
    void visit(const app::OrSecurityCondition&) override {}
    void visit(const app::NotSecurityCondition&) override {}
    void visit(const app::AuthIdSecurityCondition&) override {}
    void visit(const app::AlwaysSecurityCondition&) override {}
    void visit(const app::NeverSecurityCondition&) override { grants = false; }
    bool grants = true;
};

// Builds the ASN.1 value of an application condition.
class ConditionEncoder : public app::ISecurityConditionVisitor {
public:
    void visit(const app::AndSecurityCondition& condition) override {
        encodeOperands(SecurityCondition::andCondition, condition.getOperands());
    }
    void visit(const app::OrSecurityCondition& condition) override {
        encodeOperands(SecurityCondition::orCondition, condition.getOperands());
    }
    void visit(const app::NotSecurityCondition& condition) override {
        encodeOperands(SecurityCondition::notCondition, {condition.getOperand()});
    }
    void visit(const app::AuthIdSecurityCondition& condition) override {
        value.choice = SecurityCondition::authId;
        value.authIdValue = condition.getAuthId();
    }
    void visit(const app::AlwaysSecurityCondition&) override {
        APP_THROW(app::ApplicationException,
                  "encodeSecurityCondition: always condition not supported");
    }
    void visit(const app::NeverSecurityCondition&) override {
        APP_THROW(app::ApplicationException,
                  "encodeSecurityCondition: never condition not supported inside a condition");
    }

    SecurityCondition value;

private:
    void encodeOperands(int choice, const app::SecurityConditionList& operands) {
        value.choice = choice;
        for (const app::SecurityConditionPtr& operand : operands) {
            if (!operand) {
                APP_THROW(app::ApplicationException,
                          "encodeSecurityCondition: input parameter is null");
            }
            value.operands.push_back(OssHelper::encodeSecurityCondition(*operand));
        }
    }
};

app::SecurityConditionList decodeOperands(const SecurityCondition& value) {
    app::SecurityConditionList operands;
    for (const SecurityCondition& operand : value.operands) {
        operands.push_back(OssHelper::decodeSecurityCondition(&operand));
    }
    return operands;
}

} // namespace

boost::shared_ptr<app::ISecurityCondition>
OssHelper::decodeSecurityCondition(const SecurityCondition* value) {
    if (value == nullptr) {
        APP_THROW(app::ApplicationException, "decodeSecurityCondition: input parameter is null");
    }
    switch (value->choice) {
    case SecurityCondition::authId:
        return boost::make_shared<app::AuthIdSecurityCondition>(value->authIdValue);
    case SecurityCondition::notCondition:
        if (value->operands.size() != 1) {
            APP_THROW(app::ApplicationException,
                      "decodeSecurityCondition: input parameter is null");
        }
        return boost::make_shared<app::NotSecurityCondition>(
            decodeSecurityCondition(&value->operands.front()));
    case SecurityCondition::andCondition:
        return boost::make_shared<app::AndSecurityCondition>(decodeOperands(*value));
    case SecurityCondition::orCondition:
        return boost::make_shared<app::OrSecurityCondition>(decodeOperands(*value));
    default:
        APP_THROW(app::ApplicationException,
                  "decodeSecurityCondition: unknown SecurityCondition choice");
    }
}

void OssHelper::decodeAccessControlRules(const std::vector<AccessControlRule>& value,
                                         std::vector<app::AccessControlRule>& rules) {
    for (const AccessControlRule& rule : value) {
        if (rule.accessMode.bitCount > kAccessModeBits) {
            APP_THROW(app::ApplicationException,
                      "CommonObject::AccessRule::AccessMode not PKCS#15 conform");
        }
        const std::uint16_t mode = rule.accessMode.bitCount == 0
                                       ? 0
                                       : static_cast<std::uint16_t>(rule.accessMode.octets[0] >> 5);
        rules.emplace_back(mode, decodeSecurityCondition(&rule.securityCondition));
    }
}

void OssHelper::encodeAccessControlRules(const std::vector<app::AccessControlRule>& rules,
                                         std::vector<AccessControlRule>& value) {
    for (const app::AccessControlRule& rule : rules) {
        if (rule.getAccessMode() > kMaxAccessMode) {
            APP_THROW_DATA(app::ApplicationException,
                           "CommonObject::AccessRule::AccessMode not PKCS#15 conform",
                           rule.getAccessMode());
        }
        const app::SecurityConditionPtr& condition = rule.getSecurityCondition();
        GrantsAccess grants;
        if (condition) {
            condition->accept(grants);
        }
        if (!condition || !grants.grants) {
            continue;
        }
        AccessControlRule encoded;
        encoded.accessMode.octets = {static_cast<std::uint8_t>(rule.getAccessMode() << 5)};
        encoded.accessMode.bitCount = kAccessModeBits;
        encoded.securityCondition = encodeSecurityCondition(*condition);
        value.push_back(std::move(encoded));
    }
}

SecurityCondition OssHelper::encodeSecurityCondition(const app::ISecurityCondition& condition) {
    ConditionEncoder encoder;
    condition.accept(encoder);
    return encoder.value;
}

} // namespace app::pkcs15::oss
