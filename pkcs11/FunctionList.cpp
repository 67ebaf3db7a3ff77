// The module's one exported symbol: its function list, with every function
// of PKCS#11 v2.40.
#include "pkcs11/Entry.hpp"

namespace {

template <class... Args> CK_RV notSupported(Args...) {
    return CKR_FUNCTION_NOT_SUPPORTED;
}

CK_RV getFunctionList(CK_FUNCTION_LIST_PTR_PTR list);

CK_FUNCTION_LIST makeFunctionList() {
    CK_FUNCTION_LIST f{};
    f.version = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
    f.C_Initialize = p15_Initialize;
    f.C_Finalize = p15_Finalize;
    f.C_GetInfo = p15_GetInfo;
    f.C_GetFunctionList = getFunctionList;
    f.C_GetSlotList = p15_GetSlotList;
    f.C_GetSlotInfo = p15_GetSlotInfo;
    f.C_GetTokenInfo = p15_GetTokenInfo;
    f.C_GetMechanismList = p15_GetMechanismList;
    f.C_GetMechanismInfo = p15_GetMechanismInfo;
    f.C_InitToken = notSupported;
    f.C_InitPIN = p15_InitPIN;
    f.C_SetPIN = p15_SetPIN;
    f.C_OpenSession = p15_OpenSession;
    f.C_CloseSession = p15_CloseSession;
    f.C_CloseAllSessions = p15_CloseAllSessions;
    f.C_GetSessionInfo = p15_GetSessionInfo;
    f.C_GetOperationState = notSupported;
    f.C_SetOperationState = notSupported;
    f.C_Login = p15_Login;
    f.C_Logout = p15_Logout;
    f.C_CreateObject = p15_CreateObject;
    f.C_CopyObject = notSupported;
    f.C_DestroyObject = p15_DestroyObject;
    f.C_GetObjectSize = p15_GetObjectSize;
    f.C_GetAttributeValue = p15_GetAttributeValue;
    f.C_SetAttributeValue = p15_SetAttributeValue;
    f.C_FindObjectsInit = p15_FindObjectsInit;
    f.C_FindObjects = p15_FindObjects;
    f.C_FindObjectsFinal = p15_FindObjectsFinal;
    f.C_EncryptInit = p15_EncryptInit;
    f.C_Encrypt = p15_Encrypt;
    f.C_EncryptUpdate = notSupported;
    f.C_EncryptFinal = notSupported;
    f.C_DecryptInit = p15_DecryptInit;
    f.C_Decrypt = p15_Decrypt;
    f.C_DecryptUpdate = notSupported;
    f.C_DecryptFinal = notSupported;
    f.C_DigestInit = notSupported;
    f.C_Digest = notSupported;
    f.C_DigestUpdate = notSupported;
    f.C_DigestKey = notSupported;
    f.C_DigestFinal = notSupported;
    f.C_SignInit = p15_SignInit;
    f.C_Sign = p15_Sign;
    f.C_SignUpdate = p15_SignUpdate;
    f.C_SignFinal = p15_SignFinal;
    f.C_SignRecoverInit = notSupported;
    f.C_SignRecover = notSupported;
    f.C_VerifyInit = p15_VerifyInit;
    f.C_Verify = p15_Verify;
    f.C_VerifyUpdate = p15_VerifyUpdate;
    f.C_VerifyFinal = p15_VerifyFinal;
    f.C_VerifyRecoverInit = notSupported;
    f.C_VerifyRecover = notSupported;
    f.C_DigestEncryptUpdate = notSupported;
    f.C_DecryptDigestUpdate = notSupported;
    f.C_SignEncryptUpdate = notSupported;
    f.C_DecryptVerifyUpdate = notSupported;
    f.C_GenerateKey = notSupported;
    f.C_GenerateKeyPair = p15_GenerateKeyPair;
    f.C_WrapKey = notSupported;
    f.C_UnwrapKey = notSupported;
    f.C_DeriveKey = notSupported;
    f.C_SeedRandom = notSupported;
    f.C_GenerateRandom = p15_GenerateRandom;
    // Legacy functions: always CKR_FUNCTION_NOT_PARALLEL by the standard.
    f.C_GetFunctionStatus = [](CK_SESSION_HANDLE) -> CK_RV { return CKR_FUNCTION_NOT_PARALLEL; };
    f.C_CancelFunction = [](CK_SESSION_HANDLE) -> CK_RV { return CKR_FUNCTION_NOT_PARALLEL; };
    f.C_WaitForSlotEvent = p15_WaitForSlotEvent;
    return f;
}

CK_FUNCTION_LIST functionList = makeFunctionList();

CK_RV getFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
    if (!list) {
        return CKR_ARGUMENTS_BAD;
    }
    *list = &functionList;
    return CKR_OK;
}

} // namespace

extern "C" __attribute__((visibility("default"))) CK_RV
C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
    return getFunctionList(list);
}
