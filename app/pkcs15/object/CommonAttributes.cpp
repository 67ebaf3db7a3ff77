#include "app/pkcs15/object/CommonAttributes.hpp"

#include "app/ApplicationException.hpp"
#include "app/SecurityConditions.hpp"
#include "app/pkcs15/oss/OssHelper.hpp"

#include <boost/make_shared.hpp>

namespace app {
namespace pkcs15 {
namespace object {

const FlagWord commonObjectFlags{2, "Common Object flags not PKCS#15 conform",
                                 "CommonObject Flags not PKCS#15 conform"};
const FlagWord valueObjectFlags{2, commonObjectFlags.encodeText, commonObjectFlags.decodeText,
                                true};
const FlagWord pinFlags{12, "Pin flags not PKCS#15 conform", "Pin Flags not PKCS#15 conform"};
// One text for private and public keys.
const FlagWord keyUsageFlags{10, "Private RSA key usage flags not PKCS#15 conform.",
                             "PrivateKey::UsageFlags not PKCS#15 conform"};
const FlagWord keyAccessFlags{5, "Private RSA key access flags not PKCS#15 conform.",
                              "PrivateKey::AccessFlags not PKCS#15 conform"};

namespace {

constexpr std::size_t kAccessModeBits = 3;

mw::ByteBuffer toBuffer(const oss::Bytes& bytes) {
    return mw::ByteBuffer(bytes);
}

oss::Bytes toBytes(const mw::ByteBuffer& buffer) {
    return oss::Bytes(buffer.begin(), buffer.end());
}

// Whether the application's condition tree has a node for every part.
bool expressible(const oss::SecurityCondition& condition) {
    switch (condition.choice) {
    case oss::SecurityCondition::authId:
        return true;
    case oss::SecurityCondition::notCondition:
    case oss::SecurityCondition::andCondition:
    case oss::SecurityCondition::orCondition:
        for (const oss::SecurityCondition& operand : condition.operands) {
            if (!expressible(operand)) {
                return false;
            }
        }
        return true;
    default:
        return false;
    }
}

template <class Family> [[noreturn]] void throwFlags(const char* text, const unsigned int* value) {
    if (value) {
        APP_THROW_DATA(Family, text, *value);
    }
    APP_THROW(Family, text);
}

// A flag value the word cannot hold, with the value when it has one.
[[noreturn]] void refuseFlags(const FlagWord& word, const char* text,
                              const unsigned int* value = nullptr) {
    if (word.invalidData) {
        throwFlags<InvalidDataException>(text, value);
    }
    throwFlags<ApplicationException>(text, value);
}

} // namespace

oss::BitString encodeFlags(const FlagWord& word, unsigned int value) {
    if (value >= (1u << word.bits)) {
        refuseFlags(word, word.encodeText, &value);
    }
    oss::BitString bits;
    bits.bitCount = word.bits;
    if (word.bits <= 8) {
        bits.octets = {static_cast<std::uint8_t>(value << (8 - word.bits))};
    } else {
        const unsigned int shifted = value << (16 - word.bits);
        bits.octets = {static_cast<std::uint8_t>(shifted >> 8), static_cast<std::uint8_t>(shifted)};
    }
    return bits;
}

std::uint16_t decodeFlags(const FlagWord& word, const oss::BitString& bits) {
    if (bits.bitCount > word.bits) {
        refuseFlags(word, word.decodeText);
    }
    if (bits.bitCount == 0 || bits.octets.empty()) {
        return 0;
    }
    if (word.bits <= 8) {
        return static_cast<std::uint16_t>(bits.octets[0] >> (8 - word.bits));
    }
    unsigned int value = static_cast<unsigned int>(bits.octets[0]) << (word.bits - 8);
    if (bits.bitCount >= 9 && bits.octets.size() >= 2) {
        value |= static_cast<unsigned int>(bits.octets[1]) >> (16 - word.bits);
    }
    return static_cast<std::uint16_t>(value);
}

AccessControlRules decodeExpressibleRules(const std::vector<oss::AccessControlRule>& rules) {
    AccessControlRules decoded;
    for (const oss::AccessControlRule& rule : rules) {
        if (rule.accessMode.bitCount > kAccessModeBits) {
            continue;
        }
        if (rule.securityCondition.choice == oss::SecurityCondition::always) {
            const std::uint16_t mode =
                rule.accessMode.octets.empty()
                    ? 0
                    : static_cast<std::uint16_t>(rule.accessMode.octets.front() >> 5);
            decoded.emplace_back(mode, boost::make_shared<AlwaysSecurityCondition>());
        } else if (expressible(rule.securityCondition)) {
            oss::OssHelper::decodeAccessControlRules({rule}, decoded);
        }
    }
    return decoded;
}

void loadCommonObjectAttributes(const oss::CommonObjectAttributes& value,
                                app::object::AbstractCardObject& object, const FlagWord& word) {
    object.labelHolder().load(value.label);
    boost::optional<std::uint8_t> flags;
    if (value.flags) {
        flags = static_cast<std::uint8_t>(decodeFlags(word, *value.flags));
    }
    object.flagsHolder().load(flags);
    boost::optional<mw::ByteBuffer> authId;
    if (value.authId) {
        authId = toBuffer(*value.authId);
    }
    object.protectingAuthIdHolder().load(authId);
    boost::optional<AccessControlRules> rules;
    if (value.accessControlRules) {
        rules = decodeExpressibleRules(*value.accessControlRules);
    }
    object.accessControlRulesHolder().load(rules);
}

void storeCommonObjectAttributes(const app::object::AbstractCardObject& object, Store which,
                                 oss::CommonObjectAttributes& value, const FlagWord& word) {
    if (isStored(object.labelHolder(), which)) {
        value.label = *object.getLabel();
    }
    if (isStored(object.flagsHolder(), which)) {
        value.flags = encodeFlags(word, *object.getFlags());
    }
    if (isStored(object.protectingAuthIdHolder(), which)) {
        value.authId = toBytes(*object.getProtectingAuthId());
    }
}

void storeObjectAttributes(const app::object::AbstractCardObject& object, Store which,
                           oss::CommonObjectAttributes& value, const char* rulesFixedText,
                           const FlagWord& word) {
    const auto& rules = object.accessControlRulesHolder();
    if (which == Store::Touched && rules.isTouched()) {
        APP_THROW(OperationNotSupportedException, rulesFixedText);
    }
    storeCommonObjectAttributes(object, which, value, word);
    if (which == Store::All && rules.get() && !rules.get()->empty()) {
        std::vector<oss::AccessControlRule> encoded;
        oss::OssHelper::encodeAccessControlRules(*rules.get(), encoded);
        value.accessControlRules = std::move(encoded);
    }
}

void loadCommonKeyAttributes(const oss::CommonKeyAttributes& value, app::object::AbstractKey& key) {
    key.keyIdHolder().load(toBuffer(value.iD));
    key.usageHolder().load(decodeFlags(keyUsageFlags, value.usage));
    key.nativeHolder().load(value.native.value_or(true));
    boost::optional<std::uint8_t> accessFlags;
    if (value.accessFlags) {
        accessFlags = static_cast<std::uint8_t>(decodeFlags(keyAccessFlags, *value.accessFlags));
    }
    key.accessFlagsHolder().load(accessFlags);
    key.startDateHolder().load(value.startDate);
    key.endDateHolder().load(value.endDate);
    boost::optional<std::vector<std::uint32_t>> references;
    if (value.algReference) {
        references.emplace(value.algReference->begin(), value.algReference->end());
    }
    key.algorithmReferencesHolder().load(references);
}

void storeCommonKeyAttributes(const app::object::AbstractKey& key, Store which,
                              oss::CommonKeyAttributes& value) {
    const bool all = which == Store::All;
    if (all || key.keyIdHolder().isTouched()) {
        value.iD = toBytes(key.getKeyId());
    }
    if (all || key.usageHolder().isTouched()) {
        value.usage = encodeFlags(keyUsageFlags, key.getUsage());
    }
    if (all || key.nativeHolder().isTouched()) {
        value.native = key.getNative();
    }
    if (isStored(key.accessFlagsHolder(), which)) {
        value.accessFlags = encodeFlags(keyAccessFlags, *key.getAccessFlags());
    }
    if (isStored(key.startDateHolder(), which)) {
        value.startDate = *key.getStartDate();
    }
    if (isStored(key.endDateHolder(), which)) {
        value.endDate = *key.getEndDate();
    }
    if (isStored(key.algorithmReferencesHolder(), which)) {
        const std::vector<std::uint32_t>& references = *key.getAlgorithmReferences();
        value.algReference.emplace(references.begin(), references.end());
    }
}

} // namespace object
} // namespace pkcs15
} // namespace app
