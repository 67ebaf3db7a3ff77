#include "pkcs11/Object.hpp"

#include <algorithm>
#include <cstring>

namespace pkcs11 {

Object::Object(CK_OBJECT_HANDLE handle, boost::shared_ptr<app::object::ICardObject> source,
               Attributes attributes)
    : handle_(handle)
    , source_(std::move(source))
    , attributes_(std::move(attributes)) {}

CK_OBJECT_CLASS Object::objectClass() const {
    CK_OBJECT_CLASS value = CKO_VENDOR_DEFINED;
    if (const Bytes* bytes = attributes_.find(CKA_CLASS); bytes && bytes->size() == sizeof value) {
        std::memcpy(&value, bytes->data(), sizeof value);
    }
    return value;
}

bool Object::isPrivate() const {
    const Bytes* value = attributes_.find(CKA_PRIVATE);
    return value && !value->empty() && value->front() != CK_FALSE;
}

void Object::defer(std::vector<CK_ATTRIBUTE_TYPE> deferred, Completion completion) {
    deferred_.push_back({std::move(deferred), std::move(completion)});
}

const Attributes& Object::attributesFor(const CK_ATTRIBUTE* entries, CK_ULONG count) {
    complete([entries, count](const Deferred& deferred) {
        return std::any_of(entries, entries + count, [&](const CK_ATTRIBUTE& entry) {
            return std::find(deferred.types.begin(), deferred.types.end(), entry.type) !=
                   deferred.types.end();
        });
    });
    return attributes_;
}

const Attributes& Object::allAttributes() {
    complete([](const Deferred&) { return true; });
    return attributes_;
}

template <class Wanted> void Object::complete(Wanted wanted) {
    for (auto it = deferred_.begin(); it != deferred_.end();) {
        if (!wanted(*it)) {
            ++it;
            continue;
        }
        // Kept when it fails (a removed card), so that the next call tries again.
        it->completion(attributes_);
        it = deferred_.erase(it);
    }
}

} // namespace pkcs11
