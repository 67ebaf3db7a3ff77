// Cryptographic operations: sign and decrypt on the card, verify and
// encrypt in software.
#include "pkcs11/Entry.hpp"

using namespace pkcs11;

namespace {

using Kind = Operation::Kind;

// How a step of an operation ended: a result the caller could not take
// yet (no buffer, or one too small) keeps the operation for the next call.
struct Outcome {
    CK_RV rv;
    bool keep = false;
};

CK_RV begin(Session& session, Token& token, Kind kind, CK_MECHANISM_PTR mechanism,
            CK_OBJECT_HANDLE key) {
    if (!mechanism) {
        return CKR_ARGUMENTS_BAD;
    }
    if (session.operation) {
        return CKR_OPERATION_ACTIVE;
    }
    session.operation.emplace(kind, *mechanism, token.object(key));
    return CKR_OK;
}

// Runs a step of the session's operation of `kind`; the operation ends
// with it unless the step asks to keep it, also when the step throws.
template <class Step> CK_RV step(Session& session, Kind kind, Step&& run) {
    if (!session.operation || session.operation->kind() != kind) {
        return CKR_OPERATION_NOT_INITIALIZED;
    }
    try {
        const Outcome outcome = run(*session.operation);
        if (!outcome.keep) {
            session.operation.reset();
        }
        return outcome.rv;
    } catch (...) {
        session.operation.reset();
        throw;
    }
}

// Hands out the operation's result by the PKCS#11 length convention,
// computing it once; `size` is what it will take, when known beforehand.
template <class Compute>
Outcome deliver(Operation& operation, CK_BYTE_PTR out, CK_ULONG_PTR outLength, Compute&& compute) {
    if (!outLength) {
        return {CKR_ARGUMENTS_BAD};
    }
    if (!operation.pending) {
        operation.pending = compute();
    }
    const Bytes& result = *operation.pending;
    const CK_RV rv = putOutput(result.data(), result.size(), out, outLength);
    return {rv, (rv == CKR_OK && !out) || rv == CKR_BUFFER_TOO_SMALL};
}

Outcome verifyResult(bool valid) {
    return {valid ? CKR_OK : CKR_SIGNATURE_INVALID};
}

} // namespace

CK_RV p15_VerifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return callSession("C_VerifyInit", handle, [&](Module&, Session& session, Token& token) {
        return begin(session, token, Kind::Verify, mechanism, key);
    });
}

CK_RV p15_Verify(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
                 CK_ULONG signatureLength) {
    return callSession("C_Verify", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Verify, [&](Operation& operation) {
            operation.update(valueOf({0, data, length}));
            return verifyResult(operation.verify(valueOf({0, signature, signatureLength})));
        });
    });
}

CK_RV p15_VerifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR part, CK_ULONG length) {
    return callSession("C_VerifyUpdate", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Verify, [&](Operation& operation) {
            operation.update(valueOf({0, part, length}));
            return Outcome{CKR_OK, true};
        });
    });
}

CK_RV p15_VerifyFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR signature, CK_ULONG length) {
    return callSession("C_VerifyFinal", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Verify, [&](Operation& operation) {
            return verifyResult(operation.verify(valueOf({0, signature, length})));
        });
    });
}

CK_RV p15_EncryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return callSession("C_EncryptInit", handle, [&](Module&, Session& session, Token& token) {
        return begin(session, token, Kind::Encrypt, mechanism, key);
    });
}

CK_RV p15_Encrypt(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
                  CK_ULONG_PTR outLength) {
    return callSession("C_Encrypt", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Encrypt, [&](Operation& operation) {
            return deliver(operation, out, outLength, [&] {
                return operation.encrypt(valueOf({0, data, length}));
            });
        });
    });
}
