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
    const bool privateKeyWork = kind == Kind::Sign || kind == Kind::Decrypt;
    if (privateKeyWork && token.loggedIn() != CKU_USER) {
        return CKR_USER_NOT_LOGGED_IN;
    }
    session.operation.emplace(kind, *mechanism, token.object(key, CKR_KEY_HANDLE_INVALID), token);
    return CKR_OK;
}

// The private key of an operation begun while the user was logged in: out of
// view since, the login ended (a logout, or another program's reset).
Object& operationKey(Token& token, const Operation& operation) {
    return token.object(operation.key(),
                        token.loggedIn() ? CKR_KEY_HANDLE_INVALID : CKR_USER_NOT_LOGGED_IN);
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
// computing it once; `knownSize` answers a length query without computing.
template <class Compute>
Outcome deliver(Operation& operation, CK_BYTE_PTR out, CK_ULONG_PTR outLength, Compute&& compute,
                std::optional<std::size_t> knownSize = std::nullopt) {
    if (!outLength) {
        return {CKR_ARGUMENTS_BAD};
    }
    if (!out && knownSize && !operation.pending) {
        *outLength = *knownSize;
        return {CKR_OK, true};
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

CK_RV initOperation(const char* function, CK_SESSION_HANDLE handle, Kind kind,
                    CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return callSession(function, handle, [&](Module&, Session& session, Token& token) {
        return begin(session, token, kind, mechanism, key);
    });
}

CK_RV addPart(const char* function, CK_SESSION_HANDLE handle, Kind kind, CK_BYTE_PTR part,
              CK_ULONG length) {
    return callSession(function, handle, [&](Module&, Session& session, Token&) {
        return step(session, kind, [&](Operation& operation) {
            if (operation.dataTaken) {
                return Outcome{CKR_OPERATION_ACTIVE, true};
            }
            operation.update(valueOf({0, part, length}));
            operation.partsGiven = true;
            return Outcome{CKR_OK, true};
        });
    });
}

} // namespace

CK_RV p15_VerifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return initOperation("C_VerifyInit", handle, Kind::Verify, mechanism, key);
}

CK_RV p15_Verify(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR signature,
                 CK_ULONG signatureLength) {
    return callSession("C_Verify", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Verify, [&](Operation& operation) {
            if (operation.partsGiven) {
                return Outcome{CKR_OPERATION_ACTIVE, true};
            }
            operation.update(valueOf({0, data, length}));
            return verifyResult(operation.verify(valueOf({0, signature, signatureLength})));
        });
    });
}

CK_RV p15_VerifyUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR part, CK_ULONG length) {
    return addPart("C_VerifyUpdate", handle, Kind::Verify, part, length);
}

CK_RV p15_VerifyFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR signature, CK_ULONG length) {
    return callSession("C_VerifyFinal", handle, [&](Module&, Session& session, Token&) {
        return step(session, Kind::Verify, [&](Operation& operation) {
            return verifyResult(operation.verify(valueOf({0, signature, length})));
        });
    });
}

CK_RV p15_EncryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return initOperation("C_EncryptInit", handle, Kind::Encrypt, mechanism, key);
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

CK_RV p15_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return initOperation("C_SignInit", handle, Kind::Sign, mechanism, key);
}

namespace {

// The signature of everything given so far, made by the card.
Outcome signature(Operation& operation, Token& token, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    const auto sign = [&] {
        const mw::ByteBuffer made = token.sign(operationKey(token, operation),
                                               operation.signingInput(), operation.cardAlgorithm());
        return Bytes(made.begin(), made.end());
    };
    return deliver(operation, out, outLength, sign, operation.blockSize());
}

} // namespace

CK_RV p15_Sign(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
               CK_ULONG_PTR outLength) {
    return callSession("C_Sign", handle, [&](Module&, Session& session, Token& token) {
        return step(session, Kind::Sign, [&](Operation& operation) {
            if (operation.partsGiven) {
                return Outcome{CKR_OPERATION_ACTIVE, true};
            }
            // A length query took the data already; the repeated call brings
            // the same data again.
            if (!operation.pending && !operation.dataTaken) {
                operation.update(valueOf({0, data, length}));
                operation.dataTaken = true;
            }
            return signature(operation, token, out, outLength);
        });
    });
}

CK_RV p15_SignUpdate(CK_SESSION_HANDLE handle, CK_BYTE_PTR part, CK_ULONG length) {
    return addPart("C_SignUpdate", handle, Kind::Sign, part, length);
}

CK_RV p15_SignFinal(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG_PTR outLength) {
    return callSession("C_SignFinal", handle, [&](Module&, Session& session, Token& token) {
        return step(session, Kind::Sign, [&](Operation& operation) {
            return signature(operation, token, out, outLength);
        });
    });
}

CK_RV p15_DecryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return initOperation("C_DecryptInit", handle, Kind::Decrypt, mechanism, key);
}

CK_RV p15_Decrypt(CK_SESSION_HANDLE handle, CK_BYTE_PTR data, CK_ULONG length, CK_BYTE_PTR out,
                  CK_ULONG_PTR outLength) {
    return callSession("C_Decrypt", handle, [&](Module&, Session& session, Token& token) {
        return step(session, Kind::Decrypt, [&](Operation& operation) {
            return deliver(operation, out, outLength, [&] {
                if (length != operation.blockSize()) {
                    throw Failure(CKR_ENCRYPTED_DATA_LEN_RANGE);
                }
                const mw::ByteBuffer plain =
                    token.decipher(operationKey(token, operation), bufferOf(data, length),
                                   operation.cardAlgorithm());
                return Bytes(plain.begin(), plain.end());
            });
        });
    });
}

CK_RV p15_GenerateRandom(CK_SESSION_HANDLE handle, CK_BYTE_PTR out, CK_ULONG length) {
    return callSession("C_GenerateRandom", handle, [&](Module&, Session&, Token& token) {
        if (!out && length != 0) {
            return CKR_ARGUMENTS_BAD;
        }
        const mw::ByteBuffer random = token.random(length);
        std::copy(random.begin(), random.end(), out);
        return random.size() == length ? CKR_OK : CKR_DEVICE_ERROR;
    });
}
