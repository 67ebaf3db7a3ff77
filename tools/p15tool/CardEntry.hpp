#ifndef TOOLS_P15TOOL_CARDENTRY_HPP
#define TOOLS_P15TOOL_CARDENTRY_HPP

#include "app/object/IKey.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"

#include <optional>

namespace p15tool {

// Parts of an object's entry as the card holds it, where the plugin gives
// the entry (app::object::IEncodedEntry): what the object's attributes
// leave out. None when it gives none, or the entry is not shaped as a
// PKCS#15 object.
std::optional<app::pkcs15::oss::CommonObjectAttributes>
entryCommonAttributes(const app::object::ICardObject& object);
std::optional<app::pkcs15::oss::CommonKeyAttributes>
entryKeyAttributes(const app::object::IKey& key);

} // namespace p15tool

#endif
