// C_GetInterfaceList and C_GetInterface: the module offers one interface,
// "PKCS 11" with its v2.40 function list. Like C_GetFunctionList they work
// before C_Initialize.
#include "pkcs11/Interfaces.hpp"

#include "pkcs11/Entry.hpp"

#include <cstring>

namespace {

CK_CHAR standardName[] = "PKCS 11";

// The interface's function list is the one C_GetFunctionList hands out.
CK_INTERFACE makeInterface() {
    CK_FUNCTION_LIST_PTR list = nullptr;
    C_GetFunctionList(&list);
    return {standardName, list, 0};
}

CK_INTERFACE& standardInterface() {
    static CK_INTERFACE interface = makeInterface();
    return interface;
}

bool matches(const CK_INTERFACE& interface, const CK_UTF8CHAR* name, const CK_VERSION* version,
             CK_FLAGS flags) {
    const CK_VERSION& own = static_cast<CK_FUNCTION_LIST_PTR>(interface.pFunctionList)->version;
    return (!name || std::strcmp(reinterpret_cast<const char*>(name),
                                 reinterpret_cast<const char*>(interface.pInterfaceName)) == 0) &&
           (!version || (version->major == own.major && version->minor == own.minor)) &&
           (interface.flags & flags) == flags;
}

} // namespace

extern "C" __attribute__((visibility("default"))) CK_RV C_GetInterfaceList(CK_INTERFACE_PTR list,
                                                                           CK_ULONG_PTR count) {
    return pkcs11::putList(&standardInterface(), 1, list, count);
}

extern "C" __attribute__((visibility("default"))) CK_RV C_GetInterface(CK_UTF8CHAR_PTR name,
                                                                       CK_VERSION_PTR version,
                                                                       CK_INTERFACE_PTR_PTR found,
                                                                       CK_FLAGS flags) {
    if (!found || !matches(standardInterface(), name, version, flags)) {
        return CKR_ARGUMENTS_BAD;
    }
    *found = &standardInterface();
    return CKR_OK;
}
