#ifndef PKCS11_INTERFACES_HPP
#define PKCS11_INTERFACES_HPP

// The interface discovery of PKCS#11 3.0, which the v2.40 header lacks: a
// 3.0 application asks a module for its interfaces by name and version
// instead of calling C_GetFunctionList.
#include "pkcs11/Cryptoki.hpp"

extern "C" {

/// One interface of a module: its name ("PKCS 11" for the standard's
/// function lists), its function list (whose first member is its version)
/// and its flags.
struct CK_INTERFACE {
    CK_CHAR_PTR pInterfaceName;
    CK_VOID_PTR pFunctionList;
    CK_FLAGS flags;
};
typedef CK_INTERFACE* CK_INTERFACE_PTR;
typedef CK_INTERFACE_PTR* CK_INTERFACE_PTR_PTR;

/// The module's interfaces, by the convention of C_GetSlotList: a null
/// list asks for the count, a short one is CKR_BUFFER_TOO_SMALL.
typedef CK_RV (*CK_C_GetInterfaceList)(CK_INTERFACE_PTR list, CK_ULONG_PTR count);
/// The interface of that name (null: the module's default) and version
/// (null: any) that has every flag of `flags`; CKR_ARGUMENTS_BAD when the
/// module has none.
typedef CK_RV (*CK_C_GetInterface)(CK_UTF8CHAR_PTR name, CK_VERSION_PTR version,
                                   CK_INTERFACE_PTR_PTR found, CK_FLAGS flags);
}

#endif
