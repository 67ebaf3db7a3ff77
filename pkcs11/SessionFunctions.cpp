// Sessions, login and PINs: C_OpenSession to C_SetPIN.
#include "pkcs11/Entry.hpp"

using namespace pkcs11;

namespace pkcs11 {

mw::ByteBuffer bufferOf(const unsigned char* data, CK_ULONG length) {
    if (!data && length != 0) {
        throw Failure(CKR_ARGUMENTS_BAD);
    }
    return length ? mw::ByteBuffer(data, length) : mw::ByteBuffer();
}

} // namespace pkcs11

namespace {

bool hasReadOnlySession(const Module& module, CK_SLOT_ID id) {
    const SessionCounts counts = module.sessionCounts(id);
    return counts.all > counts.readWrite;
}

} // namespace

CK_RV p15_OpenSession(CK_SLOT_ID id, CK_FLAGS flags, CK_VOID_PTR, CK_NOTIFY,
                      CK_SESSION_HANDLE_PTR handle) {
    return call("C_OpenSession", [&](Module& module) -> CK_RV {
        if (!handle) {
            return CKR_ARGUMENTS_BAD;
        }
        *handle = module.openSession(id, flags);
        return CKR_OK;
    });
}

CK_RV p15_CloseSession(CK_SESSION_HANDLE handle) {
    return call("C_CloseSession", [&](Module& module) -> CK_RV {
        module.closeSession(handle);
        return CKR_OK;
    });
}

CK_RV p15_CloseAllSessions(CK_SLOT_ID id) {
    return call("C_CloseAllSessions", [&](Module& module) -> CK_RV {
        module.closeAllSessions(id);
        return CKR_OK;
    });
}

CK_RV p15_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO_PTR info) {
    return callSession("C_GetSessionInfo", handle, [&](Module& module, Session& session, Token&) {
        if (!info) {
            return CKR_ARGUMENTS_BAD;
        }
        info->slotID = session.slot;
        info->state = module.state(session);
        info->flags = session.flags;
        info->ulDeviceError = 0;
        return CKR_OK;
    });
}

CK_RV p15_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    return callSession("C_Login", handle, [&](Module& module, Session& session, Token& token) {
        if (!pin) {
            return CKR_ARGUMENTS_BAD; // no protected authentication path
        }
        if (user == CKU_SO && hasReadOnlySession(module, session.slot)) {
            return CKR_SESSION_READ_ONLY_EXISTS;
        }
        token.login(user, bufferOf(pin, length));
        return CKR_OK;
    });
}

CK_RV p15_Logout(CK_SESSION_HANDLE handle) {
    return callSession("C_Logout", handle, [&](Module&, Session&, Token& token) {
        token.logout();
        token.retirePrivateHandles();
        return CKR_OK;
    });
}

CK_RV p15_InitPIN(CK_SESSION_HANDLE handle, CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    return callSession("C_InitPIN", handle, [&](Module&, Session& session, Token& token) {
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        token.initPin(bufferOf(pin, length));
        return CKR_OK;
    });
}

CK_RV p15_SetPIN(CK_SESSION_HANDLE handle, CK_UTF8CHAR_PTR oldPin, CK_ULONG oldLength,
                 CK_UTF8CHAR_PTR newPin, CK_ULONG newLength) {
    return callSession("C_SetPIN", handle, [&](Module&, Session& session, Token& token) {
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        token.setPin(bufferOf(oldPin, oldLength), bufferOf(newPin, newLength));
        return CKR_OK;
    });
}
