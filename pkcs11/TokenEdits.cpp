// Objects the token changes: the label and id of an object on the card,
// which C_SetAttributeValue gives in its directory entry.
#include "pkcs11/ObjectList.hpp"
#include "pkcs11/Token.hpp"

#include "app/object/ICardObjectRepository.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IKey.hpp"
#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {

using app::object::ICardObject;
using app::object::ICertificate;
using app::object::IKey;

constexpr std::uint8_t modifiableFlag = 0x01;

// What C_SetAttributeValue's template asks to change.
struct Change {
    std::optional<Bytes> label;
    std::optional<Bytes> id;
};

// The template's label and id; an attribute the object lacks (a data
// object's CKA_ID among them) is CKR_ATTRIBUTE_TYPE_INVALID, any other
// CKR_ATTRIBUTE_READ_ONLY.
Change changeOf(const Attributes& current, const CK_ATTRIBUTE* entries, CK_ULONG count) {
    Change change;
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& entry = entries[i];
        if (!current.knows(entry.type)) {
            throw Failure(CKR_ATTRIBUTE_TYPE_INVALID, "the object has no such attribute");
        }
        if (entry.type == CKA_LABEL) {
            change.label = valueOf(entry);
        } else if (entry.type == CKA_ID) {
            change.id = valueOf(entry);
        } else {
            throw Failure(CKR_ATTRIBUTE_READ_ONLY, "only CKA_LABEL and CKA_ID can be changed");
        }
    }
    return change;
}

// The id of a key or certificate, as the card object holds it.
mw::ByteBuffer idOf(const ICardObject& object) {
    if (const auto* key = dynamic_cast<const IKey*>(&object)) {
        return key->getKeyId();
    }
    return dynamic_cast<const ICertificate&>(object).getCertificateId();
}

void setId(ICardObject& object, const mw::ByteBuffer& id) {
    if (auto* key = dynamic_cast<IKey*>(&object)) {
        key->setKeyId(id);
    } else {
        dynamic_cast<ICertificate&>(object).setCertificateId(id);
    }
}

// What the card object holds now of what `change` changes.
Change stateOf(const ICardObject& object, const Change& change) {
    Change state;
    if (change.label) {
        const std::string label = object.getLabel().value_or("");
        state.label = Bytes(label.begin(), label.end());
    }
    if (change.id) {
        const mw::ByteBuffer id = idOf(object);
        state.id = Bytes(id.begin(), id.end());
    }
    return state;
}

// Gives the card object the change; false when it has it already.
bool apply(ICardObject& object, const Change& change) {
    bool changed = false;
    if (change.label &&
        object.getLabel() != std::string(change.label->begin(), change.label->end())) {
        object.setLabel(std::string(change.label->begin(), change.label->end()));
        changed = true;
    }
    if (change.id && idOf(object) != mw::ByteBuffer(*change.id)) {
        setId(object, mw::ByteBuffer(*change.id));
        changed = true;
    }
    return changed;
}

} // namespace

void Token::setAttributes(CK_OBJECT_HANDLE handle, const CK_ATTRIBUTE* entries, CK_ULONG count) {
    Object& target = object(handle);
    const Change change = changeOf(target.attributesFor(entries, count), entries, count);
    if (isCertifiedKey(target)) {
        throw Failure(CKR_ACTION_PROHIBITED, "the key is part of its certificate");
    }
    ICardObject& source = *target.source();
    if (!(source.getFlags().value_or(0) & modifiableFlag)) {
        throw Failure(CKR_ACTION_PROHIBITED, "the card's entry marks the object unmodifiable");
    }
    // One id per class: the private and the public key of a pair (and its
    // certificate) share theirs, and a client gives it to each in turn.
    if (change.id && idTaken(*change.id, target.objectClass(), &target)) {
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "another object of its class has that CKA_ID");
    }
    const Change before = stateOf(source, change);
    if (!apply(source, change)) {
        return;
    }
    try {
        repository_->writeCardObject(channel(), source);
    } catch (...) {
        // The card keeps the old entry: so does the object.
        apply(source, before);
        throw;
    }
    // Every object shown from the entry (a certificate's public key too).
    for (const auto& object : objects()) {
        if (object->source().get() == &source) {
            if (change.label) {
                object->update(CKA_LABEL, *change.label);
            }
            if (change.id) {
                object->update(CKA_ID, *change.id);
            }
        }
    }
}

} // namespace pkcs11
