#ifndef PKCS11_ATTRIBUTES_HPP
#define PKCS11_ATTRIBUTES_HPP

#include "pkcs11/Cryptoki.hpp"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace pkcs11 {

using Bytes = std::vector<unsigned char>;

// The attributes of one object, each as the bytes a caller receives.
// Sensitive attributes are known by type but never have a value.
class Attributes {
public:
    void setBool(CK_ATTRIBUTE_TYPE type, bool value);
    void setUlong(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
    void setBytes(CK_ATTRIBUTE_TYPE type, Bytes value);
    void setText(CK_ATTRIBUTE_TYPE type, const std::string& value);
    void setSensitive(CK_ATTRIBUTE_TYPE type);

    bool has(CK_ATTRIBUTE_TYPE type) const { return values_.count(type) != 0; }
    /// True for an attribute the object has, with a value or sensitive.
    bool knows(CK_ATTRIBUTE_TYPE type) const { return has(type) || sensitive_.count(type) != 0; }
    const Bytes* find(CK_ATTRIBUTE_TYPE type) const;

    // Fills the caller's template by the rules of C_GetAttributeValue:
    // every entry is answered; the return value is the last failure among
    // sensitive, unknown and too-small entries, or CKR_OK.
    CK_RV copyTo(CK_ATTRIBUTE_PTR entries, CK_ULONG count) const;
    // True when every attribute of the template is present with this value.
    bool matches(const CK_ATTRIBUTE* entries, CK_ULONG count) const;

private:
    std::map<CK_ATTRIBUTE_TYPE, Bytes> values_;
    std::set<CK_ATTRIBUTE_TYPE> sensitive_;
};

// The bytes of a template entry; an entry with a null value and a non-zero
// length is CKR_ATTRIBUTE_VALUE_INVALID.
Bytes valueOf(const CK_ATTRIBUTE& entry);
// A CK_BBOOL or CK_ULONG template entry; any other length is
// CKR_ATTRIBUTE_VALUE_INVALID.
bool boolOf(const CK_ATTRIBUTE& entry);
CK_ULONG ulongOf(const CK_ATTRIBUTE& entry);

} // namespace pkcs11

#endif
