#ifndef PKCS11_OPERATION_HPP
#define PKCS11_OPERATION_HPP

#include "mw/ByteBuffer.hpp"
#include "pkcs11/Attributes.hpp"
#include "pkcs11/Mechanisms.hpp"

#include <memory>
#include <optional>
#include <string>

namespace cryptoapi {
class Cipher;
class MessageDigest;
class PublicKey;
class Signature;
} // namespace cryptoapi

namespace pkcs11 {

class Object;
class Token;

// A cryptographic operation of a session between its Init and its end.
// Public-key work (verification, enciphering) runs here in software; the
// private-key work goes to the card.
class Operation {
public:
    enum class Kind { Sign, Verify, Encrypt, Decrypt };

    // Checks that `key` may do `kind` with the mechanism and its parameters:
    // CKR_MECHANISM_INVALID for a mechanism the module or the token's card
    // cannot do `kind` with, CKR_MECHANISM_PARAM_INVALID for parameters they
    // cannot take, CKR_KEY_TYPE_INCONSISTENT for a key of the wrong class or
    // type, CKR_KEY_FUNCTION_NOT_PERMITTED when its usage forbids it,
    // CKR_KEY_SIZE_RANGE outside 1024..2048 bits or too small for the hash.
    Operation(Kind kind, const CK_MECHANISM& mechanism, Object& key, Token& token);
    ~Operation();
    Operation(Operation&&) noexcept;
    Operation& operator=(Operation&&) noexcept;

    Kind kind() const { return kind_; }
    const Mechanism& mechanism() const { return *mechanism_; }
    CK_OBJECT_HANDLE key() const { return key_; }
    // The modulus length in bytes: the size of every signature and cipher text.
    std::size_t blockSize() const { return blockSize_; }
    bool multiPart() const { return *mechanism_->digestOid != '\0'; }
    // What the card is asked to perform: rsaEncryption of the module's
    // DigestInfo for PKCS#1 v1.5, else the algorithm with its hash.
    std::string cardAlgorithm() const;

    // A part of the message to sign or verify.
    void update(const Bytes& part);
    // What the card signs for the message so far: the DigestInfo of its
    // hash (RSA-PSS: the hash), or for plain CKM_RSA_PKCS the bytes given.
    mw::ByteBuffer signingInput();
    bool verify(const Bytes& signature);
    Bytes encrypt(const Bytes& data);

    // A result computed and not yet taken, because the caller's buffer was
    // too small or absent.
    std::optional<Bytes> pending;
    // C_Sign took its data (before a length query); the repeated call's is the same.
    bool dataTaken = false;
    // Parts came through C_SignUpdate or C_VerifyUpdate: only the Final call ends it.
    bool partsGiven = false;

private:
    Kind kind_;
    const Mechanism* mechanism_;
    CK_OBJECT_HANDLE key_;
    std::size_t blockSize_ = 0;
    std::string algorithm_;
    const ParameterHash* hash_ = nullptr; // RSA-PSS and RSAES-OAEP
    std::unique_ptr<cryptoapi::PublicKey> publicKey_;
    std::unique_ptr<cryptoapi::Signature> verifier_;
    std::unique_ptr<cryptoapi::MessageDigest> digest_;
    Bytes collected_; // the input of plain CKM_RSA_PKCS and CKM_RSA_PKCS_PSS
    std::size_t inputLimit() const;
    void takeKeySize(CK_ULONG bits);
};

} // namespace pkcs11

#endif
