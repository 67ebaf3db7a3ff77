#include "pkcs11/Mechanisms.hpp"

#include "pkcs11/Entry.hpp"

#include <algorithm>

namespace pkcs11 {

namespace {

// The card signs, deciphers and generates keys; the module verifies and
// enciphers in software with the public key. A mechanism whose private-key
// half the card performs is a hardware one (CKF_HW).
constexpr CK_FLAGS signing = CKF_HW | CKF_SIGN | CKF_VERIFY;

} // namespace

const std::vector<Mechanism>& mechanisms() {
    static const std::vector<Mechanism> table{
        {CKM_RSA_PKCS, signing | CKF_ENCRYPT | CKF_DECRYPT, "1.2.840.113549.1.1.1", ""},
        {CKM_SHA1_RSA_PKCS, signing, "1.2.840.113549.1.1.5", "1.3.14.3.2.26"},
        {CKM_SHA224_RSA_PKCS, signing, "1.2.840.113549.1.1.14", "2.16.840.1.101.3.4.2.4"},
        {CKM_SHA256_RSA_PKCS, signing, "1.2.840.113549.1.1.11", "2.16.840.1.101.3.4.2.1"},
        {CKM_SHA384_RSA_PKCS, signing, "1.2.840.113549.1.1.12", "2.16.840.1.101.3.4.2.2"},
        {CKM_SHA512_RSA_PKCS, signing, "1.2.840.113549.1.1.13", "2.16.840.1.101.3.4.2.3"},
        {CKM_RSA_PKCS_KEY_PAIR_GEN, CKF_GENERATE_KEY_PAIR | CKF_HW, "", ""},
    };
    return table;
}

const Mechanism& mechanismFor(CK_MECHANISM_TYPE type, CK_FLAGS use) {
    const auto& table = mechanisms();
    const auto found = std::find_if(table.begin(), table.end(), [&](const Mechanism& m) {
        return m.type == type && (m.flags & use);
    });
    if (found == table.end()) {
        throw Failure(CKR_MECHANISM_INVALID);
    }
    return *found;
}

} // namespace pkcs11

CK_RV p15_GetMechanismList(CK_SLOT_ID id, CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count) {
    return pkcs11::call("C_GetMechanismList", [&](pkcs11::Module& module) -> CK_RV {
        module.slot(id);
        const auto& table = pkcs11::mechanisms();
        std::vector<CK_MECHANISM_TYPE> types(table.size());
        std::transform(table.begin(), table.end(), types.begin(),
                       [](const pkcs11::Mechanism& m) { return m.type; });
        return pkcs11::putList(types.data(), types.size(), list, count);
    });
}

CK_RV p15_GetMechanismInfo(CK_SLOT_ID id, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info) {
    return pkcs11::call("C_GetMechanismInfo", [&](pkcs11::Module& module) -> CK_RV {
        if (!info) {
            return CKR_ARGUMENTS_BAD;
        }
        module.slot(id);
        const pkcs11::Mechanism& mechanism = pkcs11::mechanismFor(type, ~CK_FLAGS(0));
        info->ulMinKeySize = pkcs11::smallestKeyBits;
        info->ulMaxKeySize = pkcs11::largestKeyBits;
        info->flags = mechanism.flags;
        return CKR_OK;
    });
}
