#include "pkcs11/Operation.hpp"

// Cipher.hpp constructs inline what it holds of Crypto++.
#include <cryptopp/rsa.h>

#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/MessageDigest.hpp"
#include "cryptoapi/PublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "cryptoapi/Signature.hpp"
#include "cryptoapi/detail/Pkcs1.hpp"
#include "pkcs11/Errors.hpp"
#include "pkcs11/Object.hpp"

#include <cstring>
#include <string.h>

namespace pkcs11 {

namespace {

// The X.500 name of the RSA algorithm, under which the key factory runs.
const char* const rsaKeyFactory = "2.5.8.1.1";

struct Requirement {
    CK_OBJECT_CLASS keyClass;
    CK_ATTRIBUTE_TYPE permission;
    CK_FLAGS use;
};

Requirement requirementOf(Operation::Kind kind) {
    switch (kind) {
    case Operation::Kind::Sign:
        return {CKO_PRIVATE_KEY, CKA_SIGN, CKF_SIGN};
    case Operation::Kind::Verify:
        return {CKO_PUBLIC_KEY, CKA_VERIFY, CKF_VERIFY};
    case Operation::Kind::Encrypt:
        return {CKO_PUBLIC_KEY, CKA_ENCRYPT, CKF_ENCRYPT};
    case Operation::Kind::Decrypt:
        break;
    }
    return {CKO_PRIVATE_KEY, CKA_DECRYPT, CKF_DECRYPT};
}

CK_ULONG ulongAttribute(const Attributes& attributes, CK_ATTRIBUTE_TYPE type) {
    CK_ULONG value = 0;
    const Bytes* bytes = attributes.find(type);
    if (bytes && bytes->size() == sizeof value) {
        std::memcpy(&value, bytes->data(), sizeof value);
    }
    return value;
}

bool boolAttribute(const Attributes& attributes, CK_ATTRIBUTE_TYPE type) {
    const Bytes* bytes = attributes.find(type);
    return bytes && bytes->size() == 1 && bytes->front() != CK_FALSE;
}

std::unique_ptr<cryptoapi::PublicKey> softwareKey(Object& key) {
    const Attributes& attributes = key.allAttributes();
    const Bytes* modulus = attributes.find(CKA_MODULUS);
    const Bytes* exponent = attributes.find(CKA_PUBLIC_EXPONENT);
    if (!modulus || !exponent) {
        throw Failure(CKR_KEY_FUNCTION_NOT_PERMITTED, "the key's public value is unknown");
    }
    const std::unique_ptr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance(rsaKeyFactory));
    const cryptoapi::RSAPublicKeySpec spec(modulus->data(), modulus->size(), exponent->data(),
                                           exponent->size());
    return std::unique_ptr<cryptoapi::PublicKey>(factory->generatePublic(spec));
}

} // namespace

Operation::Operation(Kind kind, const CK_MECHANISM& mechanism, Object& key)
    : kind_(kind)
    , key_(key.handle()) {
    const Requirement required = requirementOf(kind);
    mechanism_ = &mechanismFor(mechanism.mechanism, required.use);
    if (mechanism.pParameter || mechanism.ulParameterLen) {
        throw Failure(CKR_MECHANISM_PARAM_INVALID, "RSA PKCS#1 v1.5 takes no parameter");
    }
    const CK_ATTRIBUTE wanted[] = {{CKA_CLASS, nullptr, 0}, {required.permission, nullptr, 0}};
    const Attributes& attributes = key.attributesFor(wanted, 2);
    if (key.objectClass() != required.keyClass ||
        ulongAttribute(attributes, CKA_KEY_TYPE) != CKK_RSA) {
        throw Failure(CKR_KEY_TYPE_INCONSISTENT);
    }
    if (!boolAttribute(attributes, required.permission)) {
        throw Failure(CKR_KEY_FUNCTION_NOT_PERMITTED);
    }
    const CK_ULONG bits = ulongAttribute(attributes, CKA_MODULUS_BITS);
    if (bits < smallestKeyBits || bits > largestKeyBits) {
        throw Failure(CKR_KEY_SIZE_RANGE);
    }
    blockSize_ = (bits + 7) / 8;
    if (kind == Kind::Verify || kind == Kind::Encrypt) {
        publicKey_ = softwareKey(key);
    }
    if (kind == Kind::Verify) {
        verifier_.reset(cryptoapi::Signature::getInstance(mechanism_->signatureOid));
        verifier_->initVerify(*publicKey_);
    }
    if (kind == Kind::Sign && multiPart()) {
        digest_.reset(cryptoapi::MessageDigest::getInstance(mechanism_->digestOid));
    }
}

// A result waiting for the caller's buffer may be a deciphered secret.
Operation::~Operation() {
    if (pending) {
        explicit_bzero(pending->data(), pending->size());
    }
}
Operation::Operation(Operation&&) noexcept = default;
Operation& Operation::operator=(Operation&&) noexcept = default;

void Operation::update(const Bytes& part) {
    if (verifier_) {
        verifier_->update(part.data(), part.size());
    } else if (digest_) {
        digest_->update(part.data(), part.size());
    } else if (collected_.size() + part.size() > blockSize_ - 11) {
        throw Failure(CKR_DATA_LEN_RANGE, "PKCS#1 v1.5 signs at most the modulus length less 11");
    } else {
        collected_.insert(collected_.end(), part.begin(), part.end());
    }
}

mw::ByteBuffer Operation::signingInput() {
    if (!digest_) {
        return mw::ByteBuffer(collected_);
    }
    std::size_t length = 0;
    const std::unique_ptr<unsigned char[]> hash(digest_->digest(length));
    std::vector<unsigned char> input =
        cryptoapi::detail::digestInfoPrefix(mechanism_->digestOid, length);
    input.insert(input.end(), hash.get(), hash.get() + length);
    return mw::ByteBuffer(input);
}

bool Operation::verify(const Bytes& signature) {
    if (signature.size() != blockSize_) {
        throw Failure(CKR_SIGNATURE_LEN_RANGE);
    }
    return verifier_->verify(signature.data(), signature.size());
}

Bytes Operation::encrypt(const Bytes& data) {
    if (data.size() > blockSize_ - 11) {
        throw Failure(CKR_DATA_LEN_RANGE, "PKCS#1 v1.5 takes at most the modulus length less 11");
    }
    const std::unique_ptr<cryptoapi::Cipher> cipher(
        cryptoapi::Cipher::getInstance(mechanism_->signatureOid));
    cipher->init(cryptoapi::Cipher::ENCRYPT_MODE, *publicKey_);
    std::size_t length = 0;
    const std::unique_ptr<unsigned char[]> out(cipher->doFinal(length, data.data(), data.size()));
    return Bytes(out.get(), out.get() + length);
}

} // namespace pkcs11
