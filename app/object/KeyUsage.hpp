#ifndef APP_OBJECT_KEYUSAGE_HPP
#define APP_OBJECT_KEYUSAGE_HPP

#include "app/object/IKey.hpp"

#include <cstdint>

namespace app {
namespace object {

/// What a host does with a key, each with the usage bits that allow it: the
/// one rule every host follows, mapped the way PKCS#11 maps a PKCS#15 key
/// usage to its CKA_SIGN, CKA_DECRYPT… attributes. A non-repudiation key
/// signs and verifies; signing with recovery, unwrapping and wrapping are
/// operations of their own, not forms of signing, deciphering or enciphering.
enum class KeyOperation : std::uint16_t {
    sign = IKey::Sign | IKey::NonRepudiation,
    signRecover = IKey::SignRecover,
    decrypt = IKey::Decrypt,
    unwrap = IKey::Unwrap,
    verify = IKey::Verify | IKey::NonRepudiation,
    verifyRecover = IKey::VerifyRecover,
    encrypt = IKey::Encrypt,
    wrap = IKey::Wrap,
    derive = IKey::Derive,
};

/// Whether a key of `usage` (IKey::Usage bits) may do `operation`.
constexpr bool usageAllows(std::uint16_t usage, KeyOperation operation) {
    return (usage & static_cast<std::uint16_t>(operation)) != 0;
}

} // namespace object
} // namespace app

#endif
