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
    deferred_ = std::move(deferred);
    completion_ = std::move(completion);
}

const Attributes& Object::attributesFor(const CK_ATTRIBUTE* entries, CK_ULONG count) {
    const auto isDeferred = [this](const CK_ATTRIBUTE& entry) {
        return std::find(deferred_.begin(), deferred_.end(), entry.type) != deferred_.end();
    };
    if (completion_ && std::any_of(entries, entries + count, isDeferred)) {
        complete();
    }
    return attributes_;
}

const Attributes& Object::allAttributes() {
    if (completion_) {
        complete();
    }
    return attributes_;
}

void Object::complete() {
    // Kept when it fails (a removed card), so that the next call tries again.
    completion_(attributes_);
    completion_ = nullptr;
    deferred_.clear();
}

} // namespace pkcs11
