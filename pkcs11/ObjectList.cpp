#include "pkcs11/ObjectList.hpp"

#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"

namespace pkcs11 {

namespace {

using app::object::ICardObject;
using app::object::IKey;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;
using Repository = app::object::ICardObjectRepository;

constexpr std::uint8_t privateFlag = 0x02;
constexpr std::uint8_t modifiableFlag = 0x01;

Bytes bytesOf(const mw::ByteBuffer& buffer) {
    return Bytes(buffer.begin(), buffer.end());
}

Attributes commonAttributes(const ICardObject& object, CK_OBJECT_CLASS objectClass) {
    Attributes attributes;
    const std::uint8_t flags = object.getFlags().value_or(0);
    attributes.setUlong(CKA_CLASS, objectClass);
    attributes.setBool(CKA_TOKEN, true);
    attributes.setBool(CKA_PRIVATE, flags & privateFlag);
    attributes.setBool(CKA_MODIFIABLE, flags & modifiableFlag);
    attributes.setBool(CKA_COPYABLE, false);
    attributes.setBool(CKA_DESTROYABLE, true);
    attributes.setText(CKA_LABEL, object.getLabel().value_or(""));
    return attributes;
}

Attributes keyAttributes(const IKey& key, CK_OBJECT_CLASS objectClass) {
    Attributes attributes = commonAttributes(key, objectClass);
    const std::uint16_t usage = key.getUsage();
    const std::uint8_t access = key.getAccessFlags().value_or(0);
    attributes.setUlong(CKA_KEY_TYPE, CKK_RSA);
    attributes.setBytes(CKA_ID, bytesOf(key.getKeyId()));
    attributes.setBool(CKA_DERIVE, usage & IKey::Derive);
    attributes.setBool(CKA_LOCAL, access & IKey::LocalKey);
    attributes.setUlong(CKA_KEY_GEN_MECHANISM, CK_UNAVAILABLE_INFORMATION);
    return attributes;
}

void putSubject(Attributes& attributes, const boost::optional<mw::ByteBuffer>& subject) {
    attributes.setBytes(CKA_SUBJECT, subject ? bytesOf(*subject) : Bytes());
}

// The modulus and exponent of a public key, read from the card once for
// the public key and its private key both.
void readPublicValue(const Repository& repository, const card::IChannel& channel,
                     IPublicRSAKey& key, Attributes& attributes) {
    if (key.getModulus().empty()) {
        repository.readCardObject(channel, key);
    }
    attributes.setBytes(CKA_MODULUS, bytesOf(key.getModulus()));
    attributes.setBytes(CKA_PUBLIC_EXPONENT, bytesOf(key.getPublicExponent()));
}

} // namespace

std::unique_ptr<Object> publicKeyObject(const boost::shared_ptr<IPublicRSAKey>& key,
                                        CK_OBJECT_HANDLE handle, const Repository& repository,
                                        const card::IChannel& channel) {
    Attributes attributes = keyAttributes(*key, CKO_PUBLIC_KEY);
    const std::uint16_t usage = key->getUsage();
    attributes.setBool(CKA_VERIFY, usage & (IKey::Verify | IKey::NonRepudiation));
    attributes.setBool(CKA_VERIFY_RECOVER, usage & IKey::VerifyRecover);
    attributes.setBool(CKA_ENCRYPT, usage & IKey::Encrypt);
    attributes.setBool(CKA_WRAP, usage & IKey::Wrap);
    attributes.setBool(CKA_TRUSTED, false);
    attributes.setUlong(CKA_MODULUS_BITS, key->getModulusLength());
    putSubject(attributes, key->getSubjectName());
    auto object = std::make_unique<Object>(handle, key, std::move(attributes));
    object->defer({CKA_MODULUS, CKA_PUBLIC_EXPONENT}, [&repository, &channel, key](Attributes& a) {
        readPublicValue(repository, channel, *key, a);
    });
    return object;
}

std::unique_ptr<Object> privateKeyObject(const boost::shared_ptr<IPrivateRSAKey>& key,
                                         const boost::shared_ptr<IPublicRSAKey>& publicKey,
                                         CK_OBJECT_HANDLE handle, const Repository& repository,
                                         const card::IChannel& channel) {
    Attributes attributes = keyAttributes(*key, CKO_PRIVATE_KEY);
    const std::uint16_t usage = key->getUsage();
    const std::uint8_t access = key->getAccessFlags().value_or(0);
    attributes.setBool(CKA_SIGN, usage & (IKey::Sign | IKey::NonRepudiation));
    attributes.setBool(CKA_SIGN_RECOVER, usage & IKey::SignRecover);
    attributes.setBool(CKA_DECRYPT, usage & IKey::Decrypt);
    attributes.setBool(CKA_UNWRAP, usage & IKey::Unwrap);
    // The key never leaves the card, whatever its entry says.
    attributes.setBool(CKA_SENSITIVE, true);
    attributes.setBool(CKA_EXTRACTABLE, false);
    attributes.setBool(CKA_ALWAYS_SENSITIVE, access & IKey::AlwaysSensitive);
    attributes.setBool(CKA_NEVER_EXTRACTABLE, access & IKey::NeverExtractable);
    attributes.setBool(CKA_ALWAYS_AUTHENTICATE, false);
    attributes.setBool(CKA_WRAP_WITH_TRUSTED, false);
    attributes.setUlong(CKA_MODULUS_BITS, key->getModulusLength());
    putSubject(attributes, key->getSubjectName());
    for (CK_ATTRIBUTE_TYPE secret : {CKA_PRIVATE_EXPONENT, CKA_PRIME_1, CKA_PRIME_2, CKA_EXPONENT_1,
                                     CKA_EXPONENT_2, CKA_COEFFICIENT}) {
        attributes.setSensitive(secret);
    }
    if (!key->getPublicExponent().empty()) {
        attributes.setBytes(CKA_PUBLIC_EXPONENT, bytesOf(key->getPublicExponent()));
    }
    auto object = std::make_unique<Object>(handle, key, std::move(attributes));
    if (publicKey) {
        object->defer({CKA_MODULUS, CKA_PUBLIC_EXPONENT},
                      [&repository, &channel, publicKey](Attributes& a) {
                          readPublicValue(repository, channel, *publicKey, a);
                      });
    }
    return object;
}

Objects listObjects(const Repository& repository, const card::IChannel& channel,
                    CK_OBJECT_HANDLE& nextHandle) {
    Objects objects;
    std::vector<boost::shared_ptr<IPublicRSAKey>> publicKeys;
    for (const auto& key : repository.getPublicKeys(channel)) {
        if (auto rsa = boost::dynamic_pointer_cast<IPublicRSAKey>(key)) {
            publicKeys.push_back(rsa);
            objects.push_back(publicKeyObject(rsa, nextHandle++, repository, channel));
        }
    }
    for (const auto& key : repository.getPrivateKeys(channel)) {
        if (auto rsa = boost::dynamic_pointer_cast<IPrivateRSAKey>(key)) {
            boost::shared_ptr<IPublicRSAKey> pair;
            for (const auto& candidate : publicKeys) {
                if (candidate->getKeyId() == rsa->getKeyId()) {
                    pair = candidate;
                }
            }
            objects.push_back(privateKeyObject(rsa, pair, nextHandle++, repository, channel));
        }
    }
    return objects;
}

} // namespace pkcs11
