#ifndef APP_PKCS15_DETAIL_ALGORITHMREFERENCE_HPP
#define APP_PKCS15_DETAIL_ALGORITHMREFERENCE_HPP

#include "app/pkcs15/oss/Asn1Types.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <optional>
#include <vector>

namespace app {
namespace pkcs15 {
namespace detail {

/// The private-key operations a card algorithm reference is chosen for.
enum class KeyOperation { sign, decipher };

/// The card's reference of rsaEncryption (PKCS#1 v1.5) for `operation` with
/// a key, from what the PKCS#15 application states: the TokenInfo entries
/// `stated` and the key's algReference list `keyReferences`.
/// - An entry counts when it is rsaEncryption (by its algId, or without one
///   by the mechanism CKM_RSA_PKCS) and its supportedOperations, if it names
///   any, include the operation; a key that lists references only takes the
///   entries it lists.
/// - The reference is the entry's algRef, or its reference without one.
/// - A key whose references TokenInfo does not describe at all gives its
///   first one as it is.
/// Empty when nothing applies, or the reference does not fit one byte.
std::optional<unsigned char>
cardAlgorithmReference(const std::vector<oss::AlgorithmInfo>& stated,
                       const boost::optional<std::vector<std::uint32_t>>& keyReferences,
                       KeyOperation operation);

} // namespace detail
} // namespace pkcs15
} // namespace app

#endif
