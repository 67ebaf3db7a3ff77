// The token's objects: listed once per connection, filtered by login state.
#include "pkcs11/ObjectList.hpp"
#include "pkcs11/Token.hpp"

#include "pkcs11/Errors.hpp"

namespace pkcs11 {

namespace {} // namespace

Objects& Token::objects() {
    if (!objects_) {
        objects_ = listObjects(*repository_, channel(), nextHandle_);
    }
    return *objects_;
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

Object& Token::object(CK_OBJECT_HANDLE handle, CK_RV unknown) {
    for (const auto& object : objects()) {
        if (object->handle() == handle && isVisible(*object)) {
            return *object;
        }
    }
    throw Failure(unknown);
}

} // namespace pkcs11
