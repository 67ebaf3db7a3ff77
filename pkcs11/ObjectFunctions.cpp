// Objects: their attributes and sizes, the search functions, and objects
// made, changed and destroyed.
#include "pkcs11/Entry.hpp"

#include <algorithm>

using namespace pkcs11;

namespace {

// What C_GetObjectSize tells: the size of the value the card stores, a
// certificate's or data object's CKA_VALUE, a public key's modulus and
// exponent. A private key's would tell of its secret parts.
CK_ULONG valueSize(Object& object) {
    if (object.objectClass() == CKO_PRIVATE_KEY) {
        throw Failure(CKR_INFORMATION_SENSITIVE, "a private key's size is not told");
    }
    std::vector<CK_ATTRIBUTE> value{{CKA_VALUE, nullptr, 0}};
    if (object.objectClass() == CKO_PUBLIC_KEY) {
        value = {{CKA_MODULUS, nullptr, 0}, {CKA_PUBLIC_EXPONENT, nullptr, 0}};
    }
    const Attributes& attributes = object.attributesFor(value.data(), value.size());
    CK_ULONG size = 0;
    for (const CK_ATTRIBUTE& entry : value) {
        const Bytes* bytes = attributes.find(entry.type);
        size += bytes ? bytes->size() : 0;
    }
    return size;
}

} // namespace

CK_RV p15_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE_PTR entries, CK_ULONG count) {
    return callSession("C_GetAttributeValue", handle, [&](Module&, Session&, Token& token) {
        if (!entries && count != 0) {
            return CKR_ARGUMENTS_BAD;
        }
        return token.object(object).attributesFor(entries, count).copyTo(entries, count);
    });
}

CK_RV p15_SetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE_PTR entries, CK_ULONG count) {
    return callSession("C_SetAttributeValue", handle, [&](Module&, Session& session, Token& token) {
        if (!entries && count != 0) {
            return CKR_ARGUMENTS_BAD;
        }
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        token.setAttributes(object, entries, count);
        return CKR_OK;
    });
}

CK_RV p15_GetObjectSize(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ULONG_PTR size) {
    return callSession("C_GetObjectSize", handle, [&](Module&, Session&, Token& token) {
        if (!size) {
            return CKR_ARGUMENTS_BAD;
        }
        *size = valueSize(token.object(object));
        return CKR_OK;
    });
}

CK_RV p15_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE_PTR entries, CK_ULONG count) {
    return callSession("C_FindObjectsInit", handle, [&](Module&, Session& session, Token& token) {
        if (!entries && count != 0) {
            return CKR_ARGUMENTS_BAD;
        }
        if (session.search) {
            return CKR_OPERATION_ACTIVE;
        }
        session.search = Search{token.find(entries, count), 0};
        return CKR_OK;
    });
}

CK_RV p15_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE_PTR found, CK_ULONG most,
                      CK_ULONG_PTR count) {
    return callSession("C_FindObjects", handle, [&](Module&, Session& session, Token&) {
        if (!found || !count) {
            return CKR_ARGUMENTS_BAD;
        }
        if (!session.search) {
            return CKR_OPERATION_NOT_INITIALIZED;
        }
        Search& search = *session.search;
        const std::size_t n = std::min<std::size_t>(most, search.found.size() - search.next);
        std::copy_n(search.found.begin() + search.next, n, found);
        search.next += n;
        *count = n;
        return CKR_OK;
    });
}

CK_RV p15_FindObjectsFinal(CK_SESSION_HANDLE handle) {
    return callSession("C_FindObjectsFinal", handle, [&](Module&, Session& session, Token&) {
        if (!session.search) {
            return CKR_OPERATION_NOT_INITIALIZED;
        }
        session.search.reset();
        return CKR_OK;
    });
}

CK_RV p15_CreateObject(CK_SESSION_HANDLE handle, CK_ATTRIBUTE_PTR entries, CK_ULONG count,
                       CK_OBJECT_HANDLE_PTR object) {
    return callSession("C_CreateObject", handle, [&](Module&, Session& session, Token& token) {
        if (!object || (!entries && count != 0)) {
            return CKR_ARGUMENTS_BAD;
        }
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        *object = token.createObject(entries, count);
        return CKR_OK;
    });
}

CK_RV p15_DestroyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object) {
    return callSession("C_DestroyObject", handle, [&](Module&, Session& session, Token& token) {
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        token.destroyObject(object);
        return CKR_OK;
    });
}
