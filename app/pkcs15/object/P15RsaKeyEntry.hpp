#ifndef APP_PKCS15_OBJECT_P15RSAKEYENTRY_HPP
#define APP_PKCS15_OBJECT_P15RSAKEYENTRY_HPP

// What RSA private and public keys share in their directory entries.

#include "app/ApplicationException.hpp"
#include "app/IAccessControlled.hpp"
#include "app/object/AbstractKey.hpp"
#include "app/object/TrackedValue.hpp"
#include "app/pkcs15/fs/Allocation.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "card/service/FileCreationParams.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <type_traits>

namespace card {
class IChannel;
}

namespace app {
namespace pkcs15 {

class P15Application;

namespace fs {
class P15File;
}

namespace object {

// The path bytes of an indirect value; empty for any other kind of value.
mw::ByteBuffer decodeValuePath(const oss::ObjectValue& value);
// Makes `value` the indirect path `path`, keeping the index and length it had.
void storeValuePath(const mw::ByteBuffer& path, oss::ObjectValue& value);
// A modulusLength that fits 16 bits; the text for a larger one is the
// access-flags text, as it has always been.
std::uint16_t decodeModulusLength(oss::Integer bits);

// Loads the common object and common key attributes of an entry.
void loadKeyAttributes(const oss::CommonObjectAttributes& common,
                       const oss::CommonKeyAttributes& keyAttributes,
                       app::object::AbstractKey& key);
// Stores them. Rules go only into a new entry: those of a key on the card
// are its card's conditions, which a changed entry would not change, so
// setting them on such a key is refused.
void storeKeyAttributes(const app::object::AbstractKey& key, Store which,
                        oss::CommonObjectAttributes& common,
                        oss::CommonKeyAttributes& keyAttributes);

// The card conditions of the rules, for the card service.
card::service::AccessConditions cardConditions(const boost::optional<AccessControlRules>& rules);

// The conditions of the public part of a key pair whose private key has
// `conditions`: read by anyone, changed with what changes the private key.
card::service::AccessConditions publicPartConditions(card::service::AccessConditions conditions);

// Fails with `outOfMemoryText` when the file has no room for replacing the
// entry `oldEncoding` by `newEncoding`.
void checkRoom(const fs::P15File& file, const card::IChannel& channel,
               const mw::ByteBuffer& oldEncoding, const mw::ByteBuffer& newEncoding,
               const char* outOfMemoryText);

// Deletes the key files of the listed key `key` (a private key when
// `privateKey`, and then the public half of its pair too) once its entry is
// gone: only files the application allocates for that reference and path,
// and only those no remaining entry names; a file already gone is passed
// over. Any other key stays on the card.
void removeKeyFiles(const card::IChannel& channel, const P15Application& application,
                    const card::service::KeyRef& key, bool privateKey);

// The DER of an entry; `tooLongText` for one beyond 65535 bytes.
template <class Entry> mw::ByteBuffer encodeKeyEntry(const Entry& entry, const char* tooLongText);

// The holders an RSA key adds to those of every key.
template <bool Const> struct RsaKeyHoldersOf {
    template <class T> using Ref = std::conditional_t<Const, const T&, T&>;
    Ref<app::object::OptionalValue<mw::ByteBuffer>> subjectName;
    Ref<app::object::TrackedValue<mw::ByteBuffer>> keyValueReference;
    Ref<app::object::TrackedValue<std::uint16_t>> modulusLength;
};
using RsaKeyHolders = RsaKeyHoldersOf<false>;
using ConstRsaKeyHolders = RsaKeyHoldersOf<true>;

// Loads an RSA key entry (private or public: `RsaObject`) into `key` and
// `holders`; sets `ref` and returns true when it names a key reference. A
// reference the card's one-byte commands cannot carry makes the entry
// invalid: cut to a byte it would name another key.
template <class RsaObject>
bool loadRsaKeyObject(const RsaObject& value, app::object::AbstractKey& key,
                      const RsaKeyHolders& holders, card::service::KeyRef& ref) {
    const boost::optional<oss::Integer>& reference = value.classAttributes.keyReference;
    if (reference && !oss::oneByteReference(*reference)) {
        APP_THROW_DATA(InvalidDataException, "key reference beyond one byte", *reference);
    }
    loadKeyAttributes(value.commonObjectAttributes, value.classAttributes, key);
    boost::optional<mw::ByteBuffer> subject;
    if (value.subClassAttributes && value.subClassAttributes->subjectName) {
        subject = mw::ByteBuffer(*value.subClassAttributes->subjectName);
    }
    holders.subjectName.load(subject);
    holders.keyValueReference.load(decodeValuePath(value.typeAttributes.value));
    holders.modulusLength.load(decodeModulusLength(value.typeAttributes.modulusLength));
    return fs::rsaKeyRef(value.classAttributes, value.typeAttributes.value,
                         value.typeAttributes.modulusLength, ref);
}

// Stores `key` into the entry `value` (new: Store::All; read: only what the
// host set). A key reference of 0 is never written.
template <class RsaObject>
void storeRsaKeyObject(const app::object::AbstractKey& key, const ConstRsaKeyHolders& holders,
                       std::uint8_t keyReference, Store which, RsaObject& value) {
    const bool all = which == Store::All;
    storeKeyAttributes(key, which, value.commonObjectAttributes, value.classAttributes);
    if (keyReference != 0 &&
        (all || value.classAttributes.keyReference != oss::Integer(keyReference))) {
        value.classAttributes.keyReference = keyReference;
    }
    const boost::optional<mw::ByteBuffer>& subject = holders.subjectName.get();
    if (subject && (all || holders.subjectName.isTouched())) {
        if (!value.subClassAttributes) {
            value.subClassAttributes.emplace();
        }
        value.subClassAttributes->subjectName = oss::Bytes(subject->begin(), subject->end());
    }
    if (all || holders.keyValueReference.isTouched()) {
        storeValuePath(holders.keyValueReference.get(), value.typeAttributes.value);
    }
    if (all || holders.modulusLength.isTouched()) {
        value.typeAttributes.modulusLength = holders.modulusLength.get();
    }
}

// The directory file a key belongs to; it owns the key, so it is held weakly.
template <class File>
boost::shared_ptr<const File> lockFile(const boost::weak_ptr<const File>& file);

// The card reference of a key of `bits` bits in `keyReference` and `path`.
card::service::KeyRef cardKeyRef(std::uint8_t keyReference, std::uint16_t bits,
                                 const mw::ByteBuffer& path);

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
