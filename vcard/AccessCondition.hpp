#pragma once

#include "vcard/Bytes.hpp"
#include "vcard/SecurityStatus.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace vcard {

/// One condition expression of the security attributes: always, never, a verified PIN, or a
/// NOT / AND / OR of expressions (docs/card-profile.md, section 4).
class AccessCondition {
public:
    enum class Kind { Always, Never, Pin, Not, And, Or };

    static AccessCondition always() { return AccessCondition(Kind::Always); }
    static AccessCondition never() { return AccessCondition(Kind::Never); }
    static AccessCondition pin(std::uint8_t reference);
    static AccessCondition negation(AccessCondition operand);
    static AccessCondition allOf(std::vector<AccessCondition> operands);
    static AccessCondition anyOf(std::vector<AccessCondition> operands);

    /// Decodes exactly one expression; throws CardError(6A80) on anything else.
    static AccessCondition decode(const Bytes& encoded);
    Bytes encode() const;

    bool isSatisfied(const SecurityStatus& status) const;

private:
    explicit AccessCondition(Kind kind)
        : kind_(kind) {}
    static AccessCondition decodeAt(std::uint16_t tag, const Bytes& value, int depth);

    Kind kind_;
    std::uint8_t pinReference_ = 0;
    std::vector<AccessCondition> operands_;
};

/// The access modes of a file, in the order of their entries A0..A3 in FCP tag A1.
enum class AccessMode { Read = 0, Update = 1, Delete = 2, Use = 3 };

/// One condition per access mode; a mode without an entry is never granted.
class SecurityAttributes {
public:
    SecurityAttributes();
    SecurityAttributes(AccessCondition read, AccessCondition update, AccessCondition remove,
                       AccessCondition use = AccessCondition::never());

    /// Decodes the content of FCP tag A1; throws CardError(6A80) when malformed.
    static SecurityAttributes decode(const Bytes& content);
    /// The content of FCP tag A1 (every mode written out).
    Bytes encode() const;

    const AccessCondition& condition(AccessMode mode) const {
        return modes_[static_cast<std::size_t>(mode)];
    }
    bool allows(AccessMode mode, const SecurityStatus& status) const {
        return condition(mode).isSatisfied(status);
    }

private:
    std::array<AccessCondition, 4> modes_;
};

} // namespace vcard
