// Objects: C_GetAttributeValue and the search functions.
#include "pkcs11/Entry.hpp"

#include <algorithm>

using namespace pkcs11;

CK_RV p15_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE_PTR entries, CK_ULONG count) {
    return callSession("C_GetAttributeValue", handle, [&](Module&, Session&, Token& token) {
        if (!entries && count != 0) {
            return CKR_ARGUMENTS_BAD;
        }
        return token.object(object).attributesFor(entries, count).copyTo(entries, count);
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
