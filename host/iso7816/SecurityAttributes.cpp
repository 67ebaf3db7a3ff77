#include "host/iso7816/SecurityAttributes.hpp"

#include "host/iso7816/Tlv.hpp"
#include "mw/Exception.hpp"

namespace host {
namespace iso7816 {

namespace {

using namespace card::service;

enum ExpressionTag : unsigned int {
    alwaysTag = 0x90,
    neverTag = 0x97,
    pinTag = 0x88,
    andTag = 0xAF,
    orTag = 0xAE,
    notTag = 0xA7,
    attributesTag = 0xA1,
};

class ConditionEncoder : public ISecurityConditionVisitor {
public:
    explicit ConditionEncoder(mw::ByteBuffer& out)
        : out_(out) {}

    void visit(const AndSecurityCondition& condition) override {
        appendComposite(andTag, condition.operands());
    }
    void visit(const OrSecurityCondition& condition) override {
        appendComposite(orTag, condition.operands());
    }
    void visit(const NotSecurityCondition& condition) override {
        appendComposite(notTag, {condition.operand()});
    }
    void visit(const PinRefSecurityCondition& condition) override {
        appendTlv(out_, pinTag, mw::ByteBuffer{condition.pin().reference});
    }
    void visit(const AlwaysSecurityCondition&) override { appendTlv(out_, alwaysTag, {}); }
    void visit(const NeverSecurityCondition&) override { appendTlv(out_, neverTag, {}); }

    void appendComposite(unsigned int tag, const SecurityConditionList& operands) {
        mw::ByteBuffer content;
        ConditionEncoder inner(content);
        for (const SecurityConditionPtr& operand : operands) {
            inner.append(operand);
        }
        appendTlv(out_, tag, content);
    }

    void append(const SecurityConditionPtr& condition) {
        if (!condition) {
            MW_THROW(mw::NullPointerException, "security condition is null");
        }
        condition->accept(*this);
    }

private:
    mw::ByteBuffer& out_;
};

// The condition expression of one access mode, empty when no condition
// grants it.
mw::ByteBuffer encodeModeEntry(const AccessConditions& conditions, unsigned short mode) {
    SecurityConditionList granting;
    for (const AccessCondition& condition : conditions) {
        if (condition.accessModes & mode) {
            granting.push_back(condition.condition);
        }
    }
    mw::ByteBuffer expression;
    ConditionEncoder encoder(expression);
    if (granting.size() == 1) {
        encoder.append(granting.front());
    } else if (granting.size() > 1) {
        encoder.appendComposite(orTag, granting);
    }
    return expression;
}

} // namespace

mw::ByteBuffer encodeCondition(const ISecurityCondition& condition) {
    mw::ByteBuffer expression;
    ConditionEncoder encoder(expression);
    condition.accept(encoder);
    return expression;
}

mw::ByteBuffer encodeSecurityAttributes(const AccessConditions& conditions) {
    struct ModeEntry {
        unsigned int tag;
        unsigned short mode;
    };
    static const ModeEntry entries[] = {
        {0xA0, AccessRead}, {0xA1, AccessUpdate}, {0xA2, AccessUpdate}, {0xA3, AccessExecute}};
    mw::ByteBuffer content;
    for (const ModeEntry& entry : entries) {
        const mw::ByteBuffer expression = encodeModeEntry(conditions, entry.mode);
        if (!expression.empty()) {
            appendTlv(content, entry.tag, expression);
        }
    }
    mw::ByteBuffer attributes;
    appendTlv(attributes, attributesTag, content);
    return attributes;
}

} // namespace iso7816
} // namespace host
