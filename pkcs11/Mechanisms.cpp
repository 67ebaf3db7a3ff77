#include "pkcs11/Mechanisms.hpp"

#include "pkcs11/Entry.hpp"

#include <algorithm>
#include <iterator>

namespace pkcs11 {

namespace {

// The card signs, deciphers and generates keys; the module verifies and
// enciphers in software with the public key. A mechanism whose private-key
// half the card performs is a hardware one (CKF_HW).
constexpr CK_FLAGS signing = CKF_HW | CKF_SIGN | CKF_VERIFY;
constexpr CK_FLAGS ciphering = CKF_HW | CKF_ENCRYPT | CKF_DECRYPT;

const char* const pss = "1.2.840.113549.1.1.10";
const char* const oaep = "1.2.840.113549.1.1.7";
const char* const sha1 = "1.3.14.3.2.26";
const char* const sha256 = "2.16.840.1.101.3.4.2.1";
const char* const sha384 = "2.16.840.1.101.3.4.2.2";
const char* const sha512 = "2.16.840.1.101.3.4.2.3";

const ParameterHash parameterHashes[] = {
    {CKM_SHA_1, CKG_MGF1_SHA1, sha1, 20},
    {CKM_SHA256, CKG_MGF1_SHA256, sha256, 32},
    {CKM_SHA384, CKG_MGF1_SHA384, sha384, 48},
    {CKM_SHA512, CKG_MGF1_SHA512, sha512, 64},
};

// The hash of the parameters, if the padding takes it: RSA-PSS the SHA-2
// hashes the card's profile signs, RSAES-OAEP SHA-1 and SHA-256.
const ParameterHash& takenHash(Padding padding, CK_MECHANISM_TYPE type, CK_RSA_PKCS_MGF_TYPE mgf) {
    const auto found = std::find_if(std::begin(parameterHashes), std::end(parameterHashes),
                                    [&](const ParameterHash& h) { return h.type == type; });
    const bool taken =
        found != std::end(parameterHashes) &&
        (padding == Padding::Pss ? found->type != CKM_SHA_1
                                 : found->type == CKM_SHA_1 || found->type == CKM_SHA256);
    if (!taken) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "the card does not take this hash");
    }
    if (found->mgf != mgf) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "MGF1 must use the mechanism's hash");
    }
    return *found;
}

template <class Params> const Params& parameterBlock(const CK_MECHANISM& given) {
    if (!given.pParameter || given.ulParameterLen != sizeof(Params)) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "the mechanism needs its parameter block");
    }
    return *static_cast<const Params*>(given.pParameter);
}

const ParameterHash& pssHash(const Mechanism& mechanism, const CK_MECHANISM& given) {
    const auto& params = parameterBlock<CK_RSA_PKCS_PSS_PARAMS>(given);
    const ParameterHash& hash = takenHash(Padding::Pss, params.hashAlg, params.mgf);
    if (*mechanism.digestOid && hash.oid != std::string(mechanism.digestOid)) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "the parameters name another hash");
    }
    if (params.sLen != hash.length) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "the card's salt is as long as the hash");
    }
    return hash;
}

const ParameterHash& oaepHash(const CK_MECHANISM& given) {
    const auto& params = parameterBlock<CK_RSA_PKCS_OAEP_PARAMS>(given);
    // No source, or an empty one, is the empty label.
    if ((params.source != 0 && params.source != CKZ_DATA_SPECIFIED) ||
        params.ulSourceDataLen != 0) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "the card takes no OAEP label");
    }
    return takenHash(Padding::Oaep, params.hashAlg, params.mgf);
}

} // namespace

const std::vector<Mechanism>& mechanisms() {
    static const std::vector<Mechanism> table{
        {CKM_RSA_PKCS, signing | ciphering, Padding::Pkcs1, "1.2.840.113549.1.1.1", ""},
        {CKM_SHA1_RSA_PKCS, signing, Padding::Pkcs1, "1.2.840.113549.1.1.5", sha1},
        {CKM_SHA224_RSA_PKCS, signing, Padding::Pkcs1, "1.2.840.113549.1.1.14",
         "2.16.840.1.101.3.4.2.4"},
        {CKM_SHA256_RSA_PKCS, signing, Padding::Pkcs1, "1.2.840.113549.1.1.11", sha256},
        {CKM_SHA384_RSA_PKCS, signing, Padding::Pkcs1, "1.2.840.113549.1.1.12", sha384},
        {CKM_SHA512_RSA_PKCS, signing, Padding::Pkcs1, "1.2.840.113549.1.1.13", sha512},
        {CKM_RSA_PKCS_PSS, signing, Padding::Pss, pss, ""},
        {CKM_SHA256_RSA_PKCS_PSS, signing, Padding::Pss, pss, sha256},
        {CKM_SHA384_RSA_PKCS_PSS, signing, Padding::Pss, pss, sha384},
        {CKM_SHA512_RSA_PKCS_PSS, signing, Padding::Pss, pss, sha512},
        {CKM_RSA_PKCS_OAEP, ciphering, Padding::Oaep, oaep, ""},
        {CKM_RSA_PKCS_KEY_PAIR_GEN, CKF_GENERATE_KEY_PAIR | CKF_HW, Padding::Pkcs1, "", ""},
    };
    return table;
}

const Mechanism& mechanismFor(CK_MECHANISM_TYPE type) {
    const auto& table = mechanisms();
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const Mechanism& m) { return m.type == type; });
    if (found == table.end()) {
        throw Failure(CKR_MECHANISM_INVALID);
    }
    return *found;
}

Parameters parametersOf(const Mechanism& mechanism, const CK_MECHANISM& given) {
    if (mechanism.padding == Padding::Pkcs1) {
        if (given.pParameter || given.ulParameterLen) {
            throw Failure(CKR_MECHANISM_PARAM_INVALID, "RSA PKCS#1 v1.5 takes no parameter");
        }
        return {mechanism.algorithmOid};
    }
    const ParameterHash& hash =
        mechanism.padding == Padding::Pss ? pssHash(mechanism, given) : oaepHash(given);
    return {std::string(mechanism.algorithmOid) + "/" + hash.oid, &hash};
}

CK_FLAGS offeredFlags(const Mechanism& mechanism, bool cardPerforms) {
    const bool full = cardPerforms || mechanism.padding == Padding::Pkcs1;
    return full ? mechanism.flags : mechanism.flags & ~cardFlags;
}

std::string probeAlgorithm(const Mechanism& mechanism) {
    switch (mechanism.padding) {
    case Padding::Pss:
        return std::string(pss) + "/" + sha256;
    case Padding::Oaep:
        return std::string(oaep) + "/" + sha1;
    case Padding::Pkcs1:
        break;
    }
    return mechanism.algorithmOid;
}

} // namespace pkcs11

namespace {

// The mechanism's flags for the token in the slot; with no card in it, what
// the module does without one.
CK_FLAGS slotFlags(pkcs11::Module& module, CK_SLOT_ID id, const pkcs11::Mechanism& mechanism) {
    const bool performed =
        mechanism.padding != pkcs11::Padding::Pkcs1 && module.slot(id).cardPresent() &&
        module.onToken(id, [&](pkcs11::Token& token) { return token.performs(mechanism); });
    return pkcs11::offeredFlags(mechanism, performed);
}

} // namespace

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
        const pkcs11::Mechanism& mechanism = pkcs11::mechanismFor(type);
        info->ulMinKeySize = pkcs11::smallestKeyBits;
        info->ulMaxKeySize = pkcs11::largestKeyBits;
        info->flags = slotFlags(module, id, mechanism);
        return CKR_OK;
    });
}
