#include "vcard/AccessCondition.hpp"

#include "vcard/StatusWord.hpp"
#include "vcard/Tlv.hpp"

#include <algorithm>

namespace vcard {

namespace {
constexpr std::uint16_t tagAlways = 0x90;
constexpr std::uint16_t tagNever = 0x97;
constexpr std::uint16_t tagPin = 0x88;
constexpr std::uint16_t tagAnd = 0xAF;
constexpr std::uint16_t tagOr = 0xAE;
constexpr std::uint16_t tagNot = 0xA7;
// Bounds the recursion on hostile CREATE FILE data.
constexpr int maxDepth = 8;
} // namespace

AccessCondition AccessCondition::pin(std::uint8_t reference) {
    AccessCondition condition(Kind::Pin);
    condition.pinReference_ = reference;
    return condition;
}

AccessCondition AccessCondition::negation(AccessCondition operand) {
    AccessCondition condition(Kind::Not);
    condition.operands_.push_back(std::move(operand));
    return condition;
}

AccessCondition AccessCondition::allOf(std::vector<AccessCondition> operands) {
    AccessCondition condition(Kind::And);
    condition.operands_ = std::move(operands);
    return condition;
}

AccessCondition AccessCondition::anyOf(std::vector<AccessCondition> operands) {
    AccessCondition condition(Kind::Or);
    condition.operands_ = std::move(operands);
    return condition;
}

AccessCondition AccessCondition::decode(const Bytes& encoded) {
    std::vector<Tlv> tlvs = parseTlvs(encoded);
    if (tlvs.size() != 1)
        throw CardError(sw::wrongData);
    return decodeAt(tlvs[0].tag, tlvs[0].value, 0);
}

AccessCondition AccessCondition::decodeAt(std::uint16_t tag, const Bytes& value, int depth) {
    if (depth >= maxDepth)
        throw CardError(sw::wrongData);
    if ((tag == tagAlways || tag == tagNever) && value.empty())
        return AccessCondition(tag == tagAlways ? Kind::Always : Kind::Never);
    if (tag == tagPin && value.size() == 1)
        return pin(value[0]);
    if (tag != tagAnd && tag != tagOr && tag != tagNot)
        throw CardError(sw::wrongData);
    std::vector<AccessCondition> operands;
    for (const Tlv& inner : parseTlvs(value))
        operands.push_back(decodeAt(inner.tag, inner.value, depth + 1));
    if (tag == tagNot) {
        if (operands.size() != 1)
            throw CardError(sw::wrongData);
        return negation(std::move(operands[0]));
    }
    if (operands.empty())
        throw CardError(sw::wrongData);
    return tag == tagAnd ? allOf(std::move(operands)) : anyOf(std::move(operands));
}

Bytes AccessCondition::encode() const {
    Bytes out;
    switch (kind_) {
    case Kind::Always:
        return {tagAlways, 0x00};
    case Kind::Never:
        return {tagNever, 0x00};
    case Kind::Pin:
        return {tagPin, 0x01, pinReference_};
    case Kind::Not:
    case Kind::And:
    case Kind::Or: {
        Bytes inner;
        for (const AccessCondition& operand : operands_) {
            Bytes encoded = operand.encode();
            inner.insert(inner.end(), encoded.begin(), encoded.end());
        }
        std::uint16_t tag = kind_ == Kind::Not ? tagNot : kind_ == Kind::And ? tagAnd : tagOr;
        appendTlv(out, tag, inner);
    }
    }
    return out;
}

bool AccessCondition::isSatisfied(const SecurityStatus& status) const {
    auto satisfied = [&status](const AccessCondition& c) { return c.isSatisfied(status); };
    switch (kind_) {
    case Kind::Always:
        return true;
    case Kind::Never:
        return false;
    case Kind::Pin:
        return status.isVerified(pinReference_);
    case Kind::Not:
        return !operands_[0].isSatisfied(status);
    case Kind::And:
        return std::all_of(operands_.begin(), operands_.end(), satisfied);
    case Kind::Or:
        return std::any_of(operands_.begin(), operands_.end(), satisfied);
    }
    return false;
}

SecurityAttributes::SecurityAttributes()
    : modes_{AccessCondition::never(), AccessCondition::never(), AccessCondition::never(),
             AccessCondition::never()} {}

SecurityAttributes::SecurityAttributes(AccessCondition read, AccessCondition update,
                                       AccessCondition remove, AccessCondition use)
    : modes_{std::move(read), std::move(update), std::move(remove), std::move(use)} {}

SecurityAttributes SecurityAttributes::decode(const Bytes& content) {
    SecurityAttributes attributes;
    for (const Tlv& entry : parseTlvs(content)) {
        if (entry.tag < 0xA0 || entry.tag > 0xA3)
            throw CardError(sw::wrongData);
        attributes.modes_[entry.tag - 0xA0] = AccessCondition::decode(entry.value);
    }
    return attributes;
}

Bytes SecurityAttributes::encode() const {
    Bytes out;
    for (std::size_t mode = 0; mode < modes_.size(); ++mode)
        appendTlv(out, static_cast<std::uint16_t>(0xA0 + mode), modes_[mode].encode());
    return out;
}

} // namespace vcard
