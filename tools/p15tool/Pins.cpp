#include "tools/p15tool/Pins.hpp"

#include "app/IAccessControlled.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/CardEntry.hpp"
#include "tools/p15tool/EntryJson.hpp"
#include "tools/p15tool/FlagNames.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>

namespace p15tool {

namespace {

using app::object::IPin;

// IPin::PinInfo::triesLeft when the card does not say.
constexpr std::uint16_t unknownTries = 0xFFFF;

bool isUserPin(const IPin& pin) {
    return !(pin.getPinFlags() & (IPin::SoPin | IPin::UnblockingPin));
}

std::string authIdText(const mw::ByteBuffer& authId) {
    return mw::toHex(authId);
}

const IPin* pinWithAuthId(const PinList& pins, const mw::ByteBuffer& authId) {
    const auto found = std::find_if(pins.begin(), pins.end(),
                                    [&](const auto& pin) { return pin->getAuthId() == authId; });
    return found == pins.end() ? nullptr : found->get();
}

// A security condition in words, each authId followed by the label of its
// PIN when the card has one: "authId 01 (User PIN)", "(A or B)", "always".
class ConditionWords : public app::ISecurityConditionVisitor {
public:
    explicit ConditionWords(const PinList& pins)
        : pins_(pins) {}

    std::string of(const app::SecurityConditionPtr& condition) {
        if (!condition) {
            return "always";
        }
        ConditionWords operand(pins_);
        condition->accept(operand);
        return operand.text_;
    }

    void visit(const app::AndSecurityCondition& condition) override {
        join(condition.getOperands(), " and ");
    }
    void visit(const app::OrSecurityCondition& condition) override {
        join(condition.getOperands(), " or ");
    }
    void visit(const app::NotSecurityCondition& condition) override {
        text_ = "not (" + of(condition.getOperand()) + ")";
    }
    void visit(const app::AuthIdSecurityCondition& condition) override {
        const mw::ByteBuffer authId(condition.getAuthId());
        text_ = "authId " + authIdText(authId);
        if (const IPin* pin = pinWithAuthId(pins_, authId)) {
            text_ += " (" + pinName(*pin) + ")";
        }
    }
    void visit(const app::AlwaysSecurityCondition&) override { text_ = "always"; }
    void visit(const app::NeverSecurityCondition&) override { text_ = "never"; }

private:
    void join(const app::SecurityConditionList& operands, const char* joint) {
        for (const app::SecurityConditionPtr& operand : operands) {
            text_ += (text_.empty() ? "(" : joint) + of(operand);
        }
        text_ += ")";
    }

    const PinList& pins_;
    std::string text_;
};

// The rules as the card's entry has them, the PINs named; without the
// entry, those of the object (which leaves out the rules the application's
// conditions cannot express).
void putAccessRules(Json& out, const app::object::ICardObject& object, const PinList& pins) {
    if (const auto common = entryCommonAttributes(object)) {
        if (common->accessControlRules) {
            out["accessControlRules"] =
                accessRulesJson(*common->accessControlRules, [&pins](const Bytes& authId) {
                    const IPin* pin = pinWithAuthId(pins, mw::ByteBuffer(authId));
                    return pin ? pinName(*pin) : std::string();
                });
        }
        return;
    }
    const auto* controlled = dynamic_cast<const app::IAccessControlled*>(&object);
    if (!controlled || !controlled->getAccessControlRules()) {
        return;
    }
    Json rules = Json::array();
    for (const app::AccessControlRule& rule : *controlled->getAccessControlRules()) {
        rules.push_back(Json{{"accessMode", flagNames(rule.getAccessMode(), 3, accessModes)},
                             {"condition", ConditionWords(pins).of(rule.getSecurityCondition())}});
    }
    out["accessControlRules"] = rules;
}

void putCommonAttributes(Json& out, const app::object::ICardObject& object) {
    if (object.getLabel()) {
        out["label"] = displayText(*object.getLabel());
    }
    if (object.getFlags()) {
        out["flags"] = flagNames(*object.getFlags(), 2, objectFlags);
    }
}

Json pinTypeJson(std::uint32_t type) {
    if (type < pinTypes.size()) {
        return pinTypes.begin()[type];
    }
    return type;
}

void putDetails(Json& out, const IPin& pin, const PinList& pins) {
    if (pin.getFlags()) {
        out["flags"] = flagNames(*pin.getFlags(), 2, objectFlags);
    }
    out["minLength"] = pin.getMinLength();
    out["storedLength"] = pin.getStoredLength();
    if (pin.getMaxLength()) {
        out["maxLength"] = *pin.getMaxLength();
    }
    if (pin.getPadChar()) {
        out["padChar"] = mw::toHex(*pin.getPadChar());
    }
    if (const auto& path = pin.getPath()) {
        Json value{{"path", mw::toHex(path->path)}};
        if (path->index) {
            value["index"] = *path->index;
        }
        if (path->length) {
            value["length"] = *path->length;
        }
        out["path"] = value;
    }
    if (pin.getLastPinChange()) {
        out["lastPinChange"] = displayText(*pin.getLastPinChange());
    }
    if (const IPin* unblocking = unblockingPinOf(pin, pins); unblocking && unblocking != &pin) {
        out["unblockedBy"] = pinName(*unblocking);
    }
    putAccessRules(out, pin, pins);
}

void putStatus(Json& out, IPin::PinInfo info, std::optional<std::uint16_t> stateIfUntold) {
    if (info.state == card::service::PinInfo::Unknown && stateIfUntold) {
        info.state = *stateIfUntold;
    }
    if (info.triesLeft != unknownTries) {
        out["triesLeft"] = info.triesLeft;
    }
    static const char* const states[] = {"not verified", "verified", "blocked", "unknown"};
    out["state"] = info.state < std::size(states) ? Json(states[info.state]) : Json(info.state);
}

} // namespace

void addPinChoice(CLI::App& command, PinChoice& choice) {
    CLI::Option* label =
        command.add_option("--label", choice.label, "the PIN with this label")->type_name("L");
    command.add_option("--ref", choice.reference, "the PIN with this reference (0x.. for hex)")
        ->type_name("N")
        ->excludes(label);
}

PinList pinsOf(const app::object::ICardObjectRepository& repository,
               const card::IChannel& channel) {
    PinList pins;
    for (const auto& object : repository.getAuthObjects(channel)) {
        if (auto pin = boost::dynamic_pointer_cast<IPin>(object)) {
            pins.push_back(pin);
        }
    }
    return pins;
}

const IPin& choosePin(const PinList& pins, const PinChoice& choice) {
    const auto chosen = [&choice](const auto& pin) {
        if (choice.label) {
            return pin->getLabel() && displayText(*pin->getLabel()) == *choice.label;
        }
        if (choice.reference) {
            return pin->getPinReference() && *pin->getPinReference() == *choice.reference;
        }
        return isUserPin(*pin);
    };
    const auto found = std::find_if(pins.begin(), pins.end(), chosen);
    if (found != pins.end()) {
        return **found;
    }
    const std::string which = choice.label ? "labelled \"" + *choice.label + "\""
                              : choice.reference
                                  ? "with reference " + std::to_string(*choice.reference)
                                  : "for the user (neither SO PIN nor PUK)";
    throw ToolError(ExitCode::notFound,
                    "no PIN " + which + " on the card; list its PINs with: p15tool pin status");
}

const IPin* unblockingPinOf(const IPin& pin, const PinList& pins) {
    const auto& authId = pin.getProtectingAuthId();
    return authId ? pinWithAuthId(pins, *authId) : nullptr;
}

std::string pinName(const IPin& pin) {
    if (pin.getLabel() && !displayText(*pin.getLabel()).empty()) {
        return displayText(*pin.getLabel());
    }
    return "PIN " + authIdText(pin.getAuthId());
}

Json pinJson(const IPin& pin, const card::IChannel& channel, const PinList& pins, bool detailed,
             std::optional<std::uint16_t> stateIfUntold) {
    Json out;
    if (pin.getLabel()) {
        out["label"] = displayText(*pin.getLabel());
    }
    out["authId"] = authIdText(pin.getAuthId());
    if (pin.getPinReference()) {
        out["reference"] = *pin.getPinReference();
    }
    out["type"] = pinTypeJson(pin.getPinType());
    out["pinFlags"] = flagNames(pin.getPinFlags(), 12, pinFlags);
    if (detailed) {
        putDetails(out, pin, pins);
    }
    putStatus(out, pin.getPinInfo(channel), stateIfUntold);
    return out;
}

Json cardObjectJson(const app::object::ICardObject& object, const PinList& pins) {
    Json out = Json::object();
    putCommonAttributes(out, object);
    putAccessRules(out, object, pins);
    return out;
}

} // namespace p15tool
