#ifndef PKCS11_ENTRY_HPP
#define PKCS11_ENTRY_HPP

// What every PKCS#11 function of the module shares: the lock, the
// initialised module, the session and its token, and exceptions turned into
// return values.
#include "pkcs11/Errors.hpp"
#include "pkcs11/Module.hpp"

#include <algorithm>

namespace pkcs11 {

// Runs `body(module)` under the module's lock.
template <class Body> CK_RV call(const char* function, Body&& body) noexcept {
    return guarded(function, [&]() -> CK_RV {
        std::lock_guard<std::mutex> lock(Module::mutex());
        return body(Module::current());
    });
}

// Runs `body(module, session, token)` for the session `handle`.
template <class Body>
CK_RV callSession(const char* function, CK_SESSION_HANDLE handle, Body&& body) noexcept {
    return call(function, [&](Module& module) -> CK_RV {
        Session& session = module.session(handle);
        return module.onToken(session, [&](Token& token) { return body(module, session, token); });
    });
}

// A caller's byte string, of `length` bytes at `data`; null with a non-zero
// length is CKR_ARGUMENTS_BAD.
mw::ByteBuffer bufferOf(const unsigned char* data, CK_ULONG length);

/// Answers a caller's output array by the PKCS#11 convention: a null array
/// asks for the count; a short one is CKR_BUFFER_TOO_SMALL.
template <class Item>
CK_RV putList(const Item* items, std::size_t size, Item* out, CK_ULONG_PTR outCount) {
    if (!outCount) {
        return CKR_ARGUMENTS_BAD;
    }
    const CK_ULONG room = *outCount;
    *outCount = size;
    if (!out) {
        return CKR_OK;
    }
    if (room < size) {
        return CKR_BUFFER_TOO_SMALL;
    }
    std::copy_n(items, size, out);
    return CKR_OK;
}

// A caller's output buffer: a byte list.
inline CK_RV putOutput(const unsigned char* value, std::size_t size, CK_BYTE_PTR out,
                       CK_ULONG_PTR outLength) {
    return putList(value, size, out, outLength);
}

} // namespace pkcs11

// The functions the module implements (the rest answer
// CKR_FUNCTION_NOT_SUPPORTED).
extern "C" {
CK_RV p15_Initialize(CK_VOID_PTR args);
CK_RV p15_Finalize(CK_VOID_PTR reserved);
CK_RV p15_GetInfo(CK_INFO_PTR info);
CK_RV p15_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count);
CK_RV p15_GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO_PTR info);
CK_RV p15_GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO_PTR info);
CK_RV p15_GetMechanismList(CK_SLOT_ID id, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count);
CK_RV p15_GetMechanismInfo(CK_SLOT_ID id, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info);
CK_RV p15_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved);

CK_RV p15_OpenSession(CK_SLOT_ID id, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                      CK_SESSION_HANDLE_PTR handle);
CK_RV p15_CloseSession(CK_SESSION_HANDLE handle);
CK_RV p15_CloseAllSessions(CK_SLOT_ID id);
CK_RV p15_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO_PTR info);
CK_RV p15_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG length);
CK_RV p15_Logout(CK_SESSION_HANDLE handle);
CK_RV p15_InitPIN(CK_SESSION_HANDLE handle, CK_UTF8CHAR_PTR pin, CK_ULONG length);
CK_RV p15_SetPIN(CK_SESSION_HANDLE handle, CK_UTF8CHAR_PTR oldPin, CK_ULONG oldLength,
                 CK_UTF8CHAR_PTR newPin, CK_ULONG newLength);

CK_RV p15_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE_PTR entries, CK_ULONG count);
CK_RV p15_SetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE_PTR entries, CK_ULONG count);
CK_RV p15_GetObjectSize(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ULONG_PTR size);
CK_RV p15_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE_PTR entries, CK_ULONG count);
CK_RV p15_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE_PTR found, CK_ULONG most,
                      CK_ULONG_PTR count);
CK_RV p15_FindObjectsFinal(CK_SESSION_HANDLE handle);
CK_RV p15_CreateObject(CK_SESSION_HANDLE handle, CK_ATTRIBUTE_PTR entries, CK_ULONG count,
                       CK_OBJECT_HANDLE_PTR object);
CK_RV p15_DestroyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object);

CK_RV p15_VerifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV p15_Verify(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
                 CK_ULONG signatureLength);
CK_RV p15_VerifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR part, CK_ULONG length);
CK_RV p15_VerifyFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR signature, CK_ULONG length);
CK_RV p15_EncryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV p15_Encrypt(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
                  CK_ULONG_PTR outLength);
CK_RV p15_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV p15_Sign(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
               CK_ULONG_PTR outLength);
CK_RV p15_SignUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR part, CK_ULONG length);
CK_RV p15_SignFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG_PTR outLength);
CK_RV p15_DecryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key);
CK_RV p15_Decrypt(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
                  CK_ULONG_PTR outLength);
CK_RV p15_GenerateRandom(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG length);
CK_RV p15_GenerateKeyPair(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism,
                          CK_ATTRIBUTE_PTR publicTemplate, CK_ULONG publicCount,
                          CK_ATTRIBUTE_PTR privateTemplate, CK_ULONG privateCount,
                          CK_OBJECT_HANDLE_PTR publicKey, CK_OBJECT_HANDLE_PTR privateKey);
}

#endif
