// The token's objects: listed once per connection, filtered by login state.
#include "pkcs11/ObjectList.hpp"
#include "pkcs11/Token.hpp"

#include "pkcs11/Errors.hpp"

#include <algorithm>

namespace pkcs11 {

Objects& Token::objects() {
    if (!objects_) {
        objects_ = listObjects(*repository_, channel(), nextHandle_);
        for (const auto& object : *objects_) {
            offerMechanisms(*object);
        }
    }
    return *objects_;
}

void Token::keep(std::unique_ptr<Object> object) {
    offerMechanisms(*object);
    objects().push_back(std::move(object));
}

bool Token::isVisible(const Object& object) const {
    return loggedIn_ == CKU_USER || !object.isPrivate();
}

std::vector<CK_OBJECT_HANDLE> Token::find(const CK_ATTRIBUTE* entries, CK_ULONG count) {
    std::vector<CK_OBJECT_HANDLE> found;
    for (const auto& object : objects()) {
        if (isVisible(*object) && object->attributesFor(entries, count).matches(entries, count)) {
            found.push_back(object->handle());
        }
    }
    return found;
}

bool Token::idTaken(const Bytes& id, std::optional<CK_OBJECT_CLASS> objectClass,
                    const Object* except) {
    const CK_ATTRIBUTE byId{CKA_ID, const_cast<unsigned char*>(id.data()), id.size()};
    return std::any_of(objects().begin(), objects().end(), [&](const auto& object) {
        return object.get() != except && (!objectClass || object->objectClass() == *objectClass) &&
               object->attributesFor(&byId, 1).matches(&byId, 1);
    });
}

void Token::retirePrivateHandles() {
    if (!objects_) {
        return;
    }
    for (const auto& object : *objects_) {
        if (object->isPrivate()) {
            object->renumber(nextHandle_++);
        }
    }
}

Object& Token::object(CK_OBJECT_HANDLE handle, CK_RV unknown) {
    for (const auto& object : objects()) {
        if (object->handle() == handle && isVisible(*object)) {
            return *object;
        }
    }
    throw Failure(unknown);
}

} // namespace pkcs11
