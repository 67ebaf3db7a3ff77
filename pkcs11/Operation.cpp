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
#include "pkcs11/Token.hpp"

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

Operation::Operation(Kind kind, const CK_MECHANISM& mechanism, Object& key, Token& token)
    : kind_(kind)
    , key_(key.handle()) {
    const Requirement required = requirementOf(kind);
    mechanism_ = &mechanismFor(mechanism.mechanism);
    const bool cardHalf = required.use & cardFlags;
    if (!(offeredFlags(*mechanism_, cardHalf && token.performs(*mechanism_)) & required.use)) {
        throw Failure(CKR_MECHANISM_INVALID);
    }
    Parameters parameters = parametersOf(*mechanism_, mechanism);
    algorithm_ = std::move(parameters.algorithm);
    hash_ = parameters.hash;
    const CK_ATTRIBUTE wanted[] = {{CKA_CLASS, nullptr, 0}, {required.permission, nullptr, 0}};
    const Attributes& attributes = key.attributesFor(wanted, 2);
    if (key.objectClass() != required.keyClass ||
        ulongAttribute(attributes, CKA_KEY_TYPE) != CKK_RSA) {
        throw Failure(CKR_KEY_TYPE_INCONSISTENT);
    }
    if (!boolAttribute(attributes, required.permission)) {
        throw Failure(CKR_KEY_FUNCTION_NOT_PERMITTED);
    }
    takeKeySize(ulongAttribute(attributes, CKA_MODULUS_BITS));
    if (kind == Kind::Verify || kind == Kind::Encrypt) {
        publicKey_ = softwareKey(key);
    }
    if (kind == Kind::Verify) {
        verifier_.reset(cryptoapi::Signature::getInstance(algorithm_));
        verifier_->initVerify(*publicKey_);
    }
    if (multiPart() && (kind == Kind::Sign || hash_)) {
        digest_.reset(cryptoapi::MessageDigest::getInstance(mechanism_->digestOid));
    }
}

// RSA-PSS encodes the hash and a salt as long into the modulus less one bit,
// RSAES-OAEP two hashes into the modulus: each with two bytes to spare.
void Operation::takeKeySize(CK_ULONG bits) {
    if (bits < smallestKeyBits || bits > largestKeyBits) {
        throw Failure(CKR_KEY_SIZE_RANGE);
    }
    blockSize_ = (bits + 7) / 8;
    const std::size_t room = mechanism_->padding == Padding::Pss ? bits / 8 : blockSize_;
    if (hash_ && room < 2 * hash_->length + 2) {
        throw Failure(CKR_KEY_SIZE_RANGE, "the key is too small for the hash");
    }
}

std::string Operation::cardAlgorithm() const {
    return mechanism_->padding == Padding::Pkcs1 ? mechanismFor(CKM_RSA_PKCS).algorithmOid
                                                 : algorithm_;
}

// A result waiting for the caller's buffer may be a deciphered secret.
Operation::~Operation() {
    if (pending) {
        explicit_bzero(pending->data(), pending->size());
    }
}
Operation::Operation(Operation&&) noexcept = default;
Operation& Operation::operator=(Operation&&) noexcept = default;

// The most the caller's bytes can be when the module does not hash them.
std::size_t Operation::inputLimit() const {
    switch (mechanism_->padding) {
    case Padding::Pkcs1:
        return blockSize_ - 11;
    case Padding::Pss:
        return hash_->length;
    case Padding::Oaep:
        break;
    }
    return blockSize_ - 2 * hash_->length - 2;
}

void Operation::update(const Bytes& part) {
    if (digest_) {
        digest_->update(part.data(), part.size());
    } else if (verifier_ && !hash_) {
        verifier_->update(part.data(), part.size());
    } else if (collected_.size() + part.size() > inputLimit()) {
        throw Failure(CKR_DATA_LEN_RANGE,
                      hash_ ? "RSA-PSS signs a hash of the mechanism's length"
                            : "PKCS#1 v1.5 signs at most the modulus length less 11");
    } else {
        collected_.insert(collected_.end(), part.begin(), part.end());
    }
}

mw::ByteBuffer Operation::signingInput() {
    if (!digest_) {
        if (hash_ && collected_.size() != hash_->length) {
            throw Failure(CKR_DATA_LEN_RANGE, "RSA-PSS signs a hash of the mechanism's length");
        }
        return mw::ByteBuffer(collected_);
    }
    std::size_t length = 0;
    const std::unique_ptr<unsigned char[]> hash(digest_->digest(length));
    std::vector<unsigned char> input;
    if (!hash_) {
        input = cryptoapi::detail::digestInfoPrefix(mechanism_->digestOid, length);
    }
    input.insert(input.end(), hash.get(), hash.get() + length);
    return mw::ByteBuffer(input);
}

bool Operation::verify(const Bytes& signature) {
    if (signature.size() != blockSize_) {
        throw Failure(CKR_SIGNATURE_LEN_RANGE);
    }
    if (hash_) {
        const mw::ByteBuffer hash = signingInput();
        verifier_->update(hash.data(), hash.size());
    }
    return verifier_->verify(signature.data(), signature.size());
}

Bytes Operation::encrypt(const Bytes& data) {
    if (data.size() > inputLimit()) {
        throw Failure(CKR_DATA_LEN_RANGE, "the message is too long for the key and its padding");
    }
    const std::unique_ptr<cryptoapi::Cipher> cipher(cryptoapi::Cipher::getInstance(algorithm_));
    cipher->init(cryptoapi::Cipher::ENCRYPT_MODE, *publicKey_);
    std::size_t length = 0;
    const std::unique_ptr<unsigned char[]> out(cipher->doFinal(length, data.data(), data.size()));
    return Bytes(out.get(), out.get() + length);
}

} // namespace pkcs11
