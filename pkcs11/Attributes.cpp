#include "pkcs11/Attributes.hpp"

#include "pkcs11/Errors.hpp"

#include <cstring>

namespace pkcs11 {

void Attributes::setBool(CK_ATTRIBUTE_TYPE type, bool value) {
    setBytes(type, Bytes{static_cast<unsigned char>(value ? CK_TRUE : CK_FALSE)});
}

void Attributes::setUlong(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    setBytes(type, std::move(bytes));
}

void Attributes::setBytes(CK_ATTRIBUTE_TYPE type, Bytes value) {
    sensitive_.erase(type);
    values_[type] = std::move(value);
}

void Attributes::setText(CK_ATTRIBUTE_TYPE type, const std::string& value) {
    setBytes(type, Bytes(value.begin(), value.end()));
}

void Attributes::setSensitive(CK_ATTRIBUTE_TYPE type) {
    values_.erase(type);
    sensitive_.insert(type);
}

const Bytes* Attributes::find(CK_ATTRIBUTE_TYPE type) const {
    const auto found = values_.find(type);
    return found == values_.end() ? nullptr : &found->second;
}

CK_RV Attributes::copyTo(CK_ATTRIBUTE_PTR entries, CK_ULONG count) const {
    CK_RV rv = CKR_OK;
    for (CK_ULONG i = 0; i < count; ++i) {
        CK_ATTRIBUTE& entry = entries[i];
        const Bytes* value = find(entry.type);
        if (!value) {
            entry.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv =
                sensitive_.count(entry.type) ? CKR_ATTRIBUTE_SENSITIVE : CKR_ATTRIBUTE_TYPE_INVALID;
        } else if (!entry.pValue) {
            entry.ulValueLen = value->size();
        } else if (entry.ulValueLen < value->size()) {
            entry.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv = CKR_BUFFER_TOO_SMALL;
        } else {
            if (!value->empty()) {
                std::memcpy(entry.pValue, value->data(), value->size());
            }
            entry.ulValueLen = value->size();
        }
    }
    return rv;
}

bool Attributes::matches(const CK_ATTRIBUTE* entries, CK_ULONG count) const {
    for (CK_ULONG i = 0; i < count; ++i) {
        const Bytes* value = find(entries[i].type);
        if (!value || *value != valueOf(entries[i])) {
            return false;
        }
    }
    return true;
}

Bytes valueOf(const CK_ATTRIBUTE& entry) {
    if (entry.ulValueLen == 0) {
        return {};
    }
    if (!entry.pValue || entry.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "attribute without a value");
    }
    const auto* bytes = static_cast<const unsigned char*>(entry.pValue);
    return Bytes(bytes, bytes + entry.ulValueLen);
}

bool boolOf(const CK_ATTRIBUTE& entry) {
    if (entry.ulValueLen != sizeof(CK_BBOOL) || !entry.pValue) {
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "a boolean attribute is one byte");
    }
    return *static_cast<const CK_BBOOL*>(entry.pValue) != CK_FALSE;
}

CK_ULONG ulongOf(const CK_ATTRIBUTE& entry) {
    if (entry.ulValueLen != sizeof(CK_ULONG) || !entry.pValue) {
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "a number attribute is a CK_ULONG");
    }
    CK_ULONG value;
    std::memcpy(&value, entry.pValue, sizeof value);
    return value;
}

} // namespace pkcs11
