// Module, slot and token functions: C_Initialize to C_WaitForSlotEvent.
#include "pkcs11/Entry.hpp"

#include <chrono>
#include <cstring>
#include <thread>

using namespace pkcs11;

namespace {

// How often a blocking C_WaitForSlotEvent looks at the slots.
constexpr std::chrono::milliseconds eventPoll(200);

// Without CKF_OS_LOCKING_OK a caller that hands over mutex functions wants
// those used; the module can only lock with the system's.
CK_RV checkInitArgs(const CK_C_INITIALIZE_ARGS& args) {
    if (args.pReserved) {
        return CKR_ARGUMENTS_BAD;
    }
    const int given = (args.CreateMutex != nullptr) + (args.DestroyMutex != nullptr) +
                      (args.LockMutex != nullptr) + (args.UnlockMutex != nullptr);
    if (given != 0 && given != 4) {
        return CKR_ARGUMENTS_BAD;
    }
    if (given == 4 && !(args.flags & CKF_OS_LOCKING_OK)) {
        return CKR_CANT_LOCK;
    }
    return CKR_OK;
}

} // namespace

CK_RV p15_Initialize(CK_VOID_PTR args) {
    return guarded("C_Initialize", [&]() -> CK_RV {
        if (args) {
            if (const CK_RV rv = checkInitArgs(*static_cast<CK_C_INITIALIZE_ARGS*>(args))) {
                return rv;
            }
        }
        std::lock_guard<std::mutex> lock(Module::mutex());
        Module::initialize();
        return CKR_OK;
    });
}

CK_RV p15_Finalize(CK_VOID_PTR reserved) {
    if (reserved) {
        return CKR_ARGUMENTS_BAD;
    }
    return guarded("C_Finalize", []() -> CK_RV {
        std::lock_guard<std::mutex> lock(Module::mutex());
        Module::finalize();
        return CKR_OK;
    });
}

CK_RV p15_GetInfo(CK_INFO_PTR info) {
    return call("C_GetInfo", [&](Module&) -> CK_RV {
        if (!info) {
            return CKR_ARGUMENTS_BAD;
        }
        std::memset(info, 0, sizeof *info);
        info->cryptokiVersion = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
        putText(info->manufacturerID, sizeof info->manufacturerID, "p15kit");
        putText(info->libraryDescription, sizeof info->libraryDescription, "p15kit PKCS#15 cards");
        info->libraryVersion = {P15KIT_VERSION_MAJOR, P15KIT_VERSION_MINOR};
        return CKR_OK;
    });
}

CK_RV p15_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
    return call("C_GetSlotList", [&](Module& module) -> CK_RV {
        const std::vector<CK_SLOT_ID> ids = module.slotIds(tokenPresent != CK_FALSE);
        return putList(ids.data(), ids.size(), list, count);
    });
}

CK_RV p15_GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO_PTR info) {
    return call("C_GetSlotInfo", [&](Module& module) -> CK_RV {
        if (!info) {
            return CKR_ARGUMENTS_BAD;
        }
        module.slot(id).describe(*info);
        return CKR_OK;
    });
}

CK_RV p15_GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO_PTR info) {
    return call("C_GetTokenInfo", [&](Module& module) -> CK_RV {
        if (!info) {
            return CKR_ARGUMENTS_BAD;
        }
        module.onToken(id, [&](Token& token) { token.describe(*info, module.sessionCounts(id)); });
        return CKR_OK;
    });
}

CK_RV p15_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved) {
    if (!slot || reserved) {
        return CKR_ARGUMENTS_BAD;
    }
    for (;;) {
        std::optional<CK_SLOT_ID> event;
        const CK_RV rv = call("C_WaitForSlotEvent", [&](Module& module) -> CK_RV {
            event = module.takeEvent();
            return CKR_OK;
        });
        if (rv != CKR_OK) {
            return rv; // also when C_Finalize ended the wait
        }
        if (event) {
            *slot = *event;
            return CKR_OK;
        }
        if (flags & CKF_DONT_BLOCK) {
            return CKR_NO_EVENT;
        }
        std::this_thread::sleep_for(eventPoll);
    }
}
