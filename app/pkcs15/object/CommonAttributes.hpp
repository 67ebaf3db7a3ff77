#ifndef APP_PKCS15_OBJECT_COMMONATTRIBUTES_HPP
#define APP_PKCS15_OBJECT_COMMONATTRIBUTES_HPP

// How the attributes every PKCS#15 entry shares map between the objects'
// holders and the codec's values.
//
// Flag words are held as small integers whose top used bit is PKCS#15 bit 0
// of the string. Each word has its own texts for encoding and decoding; the
// two differ in wording and both are kept as they stand.

#include "app/object/AbstractCardObject.hpp"
#include "app/object/AbstractKey.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"

#include <cstddef>
#include <cstdint>

namespace app {
namespace pkcs15 {
namespace object {

struct FlagWord {
    std::size_t bits;
    const char* encodeText;
    const char* decodeText;
    bool invalidData = false; // failures are InvalidDataException, else ApplicationException
};

extern const FlagWord commonObjectFlags;
// The common object flags of certificates and data objects: the same texts,
// raised as InvalidDataException.
extern const FlagWord valueObjectFlags;
extern const FlagWord pinFlags;
extern const FlagWord keyUsageFlags;
extern const FlagWord keyAccessFlags;

// `value` as a string of exactly word.bits bits; a value with bits beyond
// them fails with the word's encode text, the value attached.
oss::BitString encodeFlags(const FlagWord& word, unsigned int value);
// A string longer than word.bits fails with the word's decode text.
std::uint16_t decodeFlags(const FlagWord& word, const oss::BitString& bits);

// Loads label, flags, protecting authId and the rules the application's
// condition tree can express (see decodeExpressibleRules).
void loadCommonObjectAttributes(const oss::CommonObjectAttributes& value,
                                app::object::AbstractCardObject& object,
                                const FlagWord& flags = commonObjectFlags);
// Which holders a store writes: every present one (a new entry), or only
// those the host set (an entry read from the card, whose other components
// stay as the card had them).
enum class Store { All, Touched };

// Whether a store writes the optional `holder`: present, and set by the
// host unless the store writes all.
template <class Holder> bool isStored(const Holder& holder, Store which) {
    return holder.get() && (which == Store::All || holder.isTouched());
}

// Writes label, flags and protecting authId into `value`; other components
// are left as they are.
void storeCommonObjectAttributes(const app::object::AbstractCardObject& object, Store which,
                                 oss::CommonObjectAttributes& value,
                                 const FlagWord& flags = commonObjectFlags);
// As storeCommonObjectAttributes, and the rules: they go only into a new
// entry. Those of an object on the card are the conditions its card files
// were created with, which a changed entry would not change, so setting them
// on such an object fails with `rulesFixedText`.
void storeObjectAttributes(const app::object::AbstractCardObject& object, Store which,
                           oss::CommonObjectAttributes& value, const char* rulesFixedText,
                           const FlagWord& flags = commonObjectFlags);

// The rules of an entry, leniently: a rule whose access mode has bits beyond
// read, update and execute, or whose condition is an extension the
// application's tree has no node for, is left out of the list (it stays on
// the card as it is); the NULL "always" condition of ISO 7816-15 at the top
// of a rule becomes an AlwaysSecurityCondition.
AccessControlRules decodeExpressibleRules(const std::vector<oss::AccessControlRule>& rules);

void loadCommonKeyAttributes(const oss::CommonKeyAttributes& value, app::object::AbstractKey& key);
// Writes iD, usage, native, access flags and dates into `value`; a new
// entry always carries native, TRUE or FALSE.
void storeCommonKeyAttributes(const app::object::AbstractKey& key, Store which,
                              oss::CommonKeyAttributes& value);

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
