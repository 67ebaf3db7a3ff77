// C_GenerateKeyPair: RSA key pairs generated on the card.
#include "pkcs11/Entry.hpp"

#include "app/object/IKey.hpp"
#include "pkcs11/Mechanisms.hpp"

using namespace pkcs11;

namespace {

using app::object::IKey;

// Sets or clears `bit` of `usage` when the template says so.
void takeUsage(const CK_ATTRIBUTE& entry, CK_ATTRIBUTE_TYPE type, std::uint16_t bit,
               std::uint16_t& usage) {
    if (entry.type == type) {
        usage = boolOf(entry) ? (usage | bit) : (usage & ~bit);
    }
}

// What both templates may say; true when `entry` was one of those.
bool takeCommon(const CK_ATTRIBUTE& entry, KeyPairRequest& request) {
    switch (entry.type) {
    case CKA_LABEL: {
        const Bytes label = valueOf(entry);
        request.label.assign(label.begin(), label.end());
        return true;
    }
    case CKA_ID:
        request.id = mw::ByteBuffer(valueOf(entry));
        return true;
    case CKA_TOKEN:
        if (!boolOf(entry)) {
            throw Failure(CKR_TEMPLATE_INCONSISTENT, "the module keeps no session keys");
        }
        return true;
    default:
        return false;
    }
}

void readPublicTemplate(const CK_ATTRIBUTE* entries, CK_ULONG count, KeyPairRequest& request) {
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& entry = entries[i];
        if (takeCommon(entry, request)) {
            continue;
        }
        if (entry.type == CKA_MODULUS_BITS) {
            const CK_ULONG bits = ulongOf(entry);
            // The card makes keys of 1024, 1536 and 2048 bits.
            if (bits < smallestKeyBits || bits > largestKeyBits || bits % 512 != 0) {
                throw Failure(CKR_KEY_SIZE_RANGE);
            }
            request.bits = static_cast<std::uint16_t>(bits);
        } else if (entry.type == CKA_PUBLIC_EXPONENT && valueOf(entry) != Bytes{1, 0, 1}) {
            throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "the card's public exponent is 65537");
        }
        takeUsage(entry, CKA_VERIFY, IKey::Verify, request.publicUsage);
        takeUsage(entry, CKA_ENCRYPT, IKey::Encrypt, request.publicUsage);
        takeUsage(entry, CKA_WRAP, IKey::Wrap, request.publicUsage);
        takeUsage(entry, CKA_VERIFY_RECOVER, IKey::VerifyRecover, request.publicUsage);
    }
    if (request.bits == 0) {
        throw Failure(CKR_TEMPLATE_INCOMPLETE, "CKA_MODULUS_BITS is required");
    }
}

void readPrivateTemplate(const CK_ATTRIBUTE* entries, CK_ULONG count, KeyPairRequest& request) {
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& entry = entries[i];
        if (takeCommon(entry, request)) {
            continue;
        }
        const bool leaves = (entry.type == CKA_EXTRACTABLE && boolOf(entry)) ||
                            (entry.type == CKA_SENSITIVE && !boolOf(entry));
        if (leaves) {
            throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "a card key never leaves the card");
        }
        if (entry.type == CKA_PRIVATE) {
            request.privateObject = boolOf(entry);
        }
        takeUsage(entry, CKA_SIGN, IKey::Sign, request.privateUsage);
        takeUsage(entry, CKA_DECRYPT, IKey::Decrypt, request.privateUsage);
        takeUsage(entry, CKA_UNWRAP, IKey::Unwrap, request.privateUsage);
        takeUsage(entry, CKA_SIGN_RECOVER, IKey::SignRecover, request.privateUsage);
    }
}

} // namespace

CK_RV p15_GenerateKeyPair(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism,
                          CK_ATTRIBUTE_PTR publicTemplate, CK_ULONG publicCount,
                          CK_ATTRIBUTE_PTR privateTemplate, CK_ULONG privateCount,
                          CK_OBJECT_HANDLE_PTR publicKey, CK_OBJECT_HANDLE_PTR privateKey) {
    return callSession("C_GenerateKeyPair", handle, [&](Module&, Session& session, Token& token) {
        if (!mechanism || !publicKey || !privateKey || (!publicTemplate && publicCount) ||
            (!privateTemplate && privateCount)) {
            return CKR_ARGUMENTS_BAD;
        }
        if (mechanism->mechanism != CKM_RSA_PKCS_KEY_PAIR_GEN) {
            return CKR_MECHANISM_INVALID;
        }
        if (!session.readWrite()) {
            return CKR_SESSION_READ_ONLY;
        }
        if (token.loggedIn() != CKU_USER) {
            return CKR_USER_NOT_LOGGED_IN;
        }
        KeyPairRequest request;
        request.publicUsage = IKey::Verify | IKey::Encrypt;
        request.privateUsage = IKey::Sign | IKey::Decrypt;
        readPublicTemplate(publicTemplate, publicCount, request);
        readPrivateTemplate(privateTemplate, privateCount, request);
        std::tie(*publicKey, *privateKey) = token.generateKeyPair(request);
        return CKR_OK;
    });
}
