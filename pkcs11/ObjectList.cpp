#include "pkcs11/ObjectList.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "app/object/KeyUsage.hpp"
#include "host/ErrorMessage.hpp"
#include "mw/Log.hpp"
#include "pkcs11/CertificateFields.hpp"
#include "pkcs11/ObjectIdentifier.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>

namespace pkcs11 {

namespace {

using app::object::ICardObject;
using app::object::ICertificate;
using app::object::IDataObject;
using app::object::IKey;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;
using app::object::KeyOperation;
using app::object::usageAllows;
using Repository = app::object::ICardObjectRepository;

// CKA_CERTIFICATE_CATEGORY values, which the header does not name.
constexpr CK_ULONG categoryTokenUser = 1;
constexpr CK_ULONG categoryAuthority = 2;
constexpr std::uint8_t privateFlag = 0x02;
constexpr std::uint8_t modifiableFlag = 0x01;

Bytes bytesOf(const mw::ByteBuffer& buffer) {
    return Bytes(buffer.begin(), buffer.end());
}

// Clients ask keys and certificates for their validity dates; the entries'
// dates are not shown, so both are empty, as PKCS#11 allows.
void putNoDates(Attributes& attributes) {
    attributes.setBytes(CKA_START_DATE, {});
    attributes.setBytes(CKA_END_DATE, {});
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

// The key attributes every RSA key object has. A key the card generated
// (its entry says local) was made by the one mechanism the module offers.
void putKeyBasics(Attributes& attributes, const mw::ByteBuffer& id, std::uint8_t access) {
    const bool local = access & IKey::LocalKey;
    attributes.setUlong(CKA_KEY_TYPE, CKK_RSA);
    attributes.setBytes(CKA_ID, bytesOf(id));
    attributes.setBool(CKA_LOCAL, local);
    attributes.setUlong(CKA_KEY_GEN_MECHANISM,
                        local ? CKM_RSA_PKCS_KEY_PAIR_GEN : CK_UNAVAILABLE_INFORMATION);
    putNoDates(attributes);
}

Attributes keyAttributes(const IKey& key, CK_OBJECT_CLASS objectClass) {
    Attributes attributes = commonAttributes(key, objectClass);
    putKeyBasics(attributes, key.getKeyId(), key.getAccessFlags().value_or(0));
    attributes.setBool(CKA_DERIVE, usageAllows(key.getUsage(), KeyOperation::derive));
    return attributes;
}

void putPublicUsage(Attributes& attributes, std::uint16_t usage) {
    attributes.setBool(CKA_VERIFY, usageAllows(usage, KeyOperation::verify));
    attributes.setBool(CKA_VERIFY_RECOVER, usageAllows(usage, KeyOperation::verifyRecover));
    attributes.setBool(CKA_ENCRYPT, usageAllows(usage, KeyOperation::encrypt));
    attributes.setBool(CKA_WRAP, usageAllows(usage, KeyOperation::wrap));
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

// The certificate's value, read from the card once.
Bytes certificateValue(const Repository& repository, const card::IChannel& channel,
                       ICertificate& certificate) {
    if (certificate.getValue().empty()) {
        repository.readCardObject(channel, certificate);
    }
    return bytesOf(certificate.getValue());
}

// Fills in the RSA public key a certificate holds, read on first use.
Object::Completion certifiedKey(const Repository& repository, const card::IChannel& channel,
                                const boost::shared_ptr<ICertificate>& certificate) {
    return [&repository, &channel, certificate](Attributes& a) {
        const auto fields = parseCertificate(certificateValue(repository, channel, *certificate));
        if (fields && !fields->modulus.empty()) {
            a.setBytes(CKA_MODULUS, fields->modulus);
            a.setBytes(CKA_PUBLIC_EXPONENT, fields->exponent);
            a.setUlong(CKA_MODULUS_BITS, fields->modulus.size() * 8);
        }
    };
}

// Fills in the subject Name of a certificate, read on first use; empty for
// a value that is no certificate.
Object::Completion certifiedSubject(const Repository& repository, const card::IChannel& channel,
                                    const boost::shared_ptr<ICertificate>& certificate) {
    return [&repository, &channel, certificate](Attributes& a) {
        const auto fields = parseCertificate(certificateValue(repository, channel, *certificate));
        a.setBytes(CKA_SUBJECT, fields ? fields->subject : Bytes());
    };
}

} // namespace

std::unique_ptr<Object> publicKeyObject(const boost::shared_ptr<IPublicRSAKey>& key,
                                        CK_OBJECT_HANDLE handle, const Repository& repository,
                                        const card::IChannel& channel) {
    Attributes attributes = keyAttributes(*key, CKO_PUBLIC_KEY);
    putPublicUsage(attributes, key->getUsage());
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
    attributes.setBool(CKA_SIGN, usageAllows(usage, KeyOperation::sign));
    attributes.setBool(CKA_SIGN_RECOVER, usageAllows(usage, KeyOperation::signRecover));
    attributes.setBool(CKA_DECRYPT, usageAllows(usage, KeyOperation::decrypt));
    attributes.setBool(CKA_UNWRAP, usageAllows(usage, KeyOperation::unwrap));
    // The key never leaves the card, whatever its entry says.
    attributes.setBool(CKA_SENSITIVE, true);
    attributes.setBool(CKA_EXTRACTABLE, false);
    attributes.setBool(CKA_ALWAYS_SENSITIVE, access & IKey::AlwaysSensitive);
    attributes.setBool(CKA_NEVER_EXTRACTABLE, access & IKey::NeverExtractable);
    // The object model does not show an entry's user consent: no key asks
    // for a login per use.
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

std::unique_ptr<Object> certifiedKeyObject(const boost::shared_ptr<ICertificate>& certificate,
                                           CK_OBJECT_HANDLE handle, const Repository& repository,
                                           const card::IChannel& channel) {
    Attributes attributes = commonAttributes(*certificate, CKO_PUBLIC_KEY);
    putKeyBasics(attributes, certificate->getCertificateId(), 0);
    putPublicUsage(attributes, IKey::Verify | IKey::Encrypt);
    attributes.setBool(CKA_DERIVE, false);
    attributes.setBool(CKA_TRUSTED, false);
    auto object = std::make_unique<Object>(handle, certificate, std::move(attributes));
    object->defer({CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_MODULUS_BITS},
                  certifiedKey(repository, channel, certificate));
    object->defer({CKA_SUBJECT}, certifiedSubject(repository, channel, certificate));
    return object;
}

std::unique_ptr<Object> certificateObject(const boost::shared_ptr<ICertificate>& certificate,
                                          CK_OBJECT_HANDLE handle, const Repository& repository,
                                          const card::IChannel& channel) {
    Attributes attributes = commonAttributes(*certificate, CKO_CERTIFICATE);
    attributes.setUlong(CKA_CERTIFICATE_TYPE, CKC_X_509);
    attributes.setBytes(CKA_ID, bytesOf(certificate->getCertificateId()));
    attributes.setBool(CKA_TRUSTED, false);
    attributes.setUlong(CKA_CERTIFICATE_CATEGORY,
                        certificate->getAuthority() ? categoryAuthority : categoryTokenUser);
    putNoDates(attributes);
    auto object = std::make_unique<Object>(handle, certificate, std::move(attributes));
    object->defer({CKA_VALUE, CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER},
                  [&repository, &channel, certificate](Attributes& a) {
                      const Bytes value = certificateValue(repository, channel, *certificate);
                      a.setBytes(CKA_VALUE, value);
                      const auto fields = parseCertificate(value);
                      a.setBytes(CKA_SUBJECT, fields ? fields->subject : Bytes());
                      a.setBytes(CKA_ISSUER, fields ? fields->issuer : Bytes());
                      a.setBytes(CKA_SERIAL_NUMBER, fields ? fields->serialNumber : Bytes());
                  });
    return object;
}

std::unique_ptr<Object> dataObject(const boost::shared_ptr<IDataObject>& data,
                                   CK_OBJECT_HANDLE handle, const Repository& repository,
                                   const card::IChannel& channel) {
    Attributes attributes = commonAttributes(*data, CKO_DATA);
    attributes.setText(CKA_APPLICATION, data->getApplicationName().value_or(""));
    const auto& oid = data->getApplicationOid();
    attributes.setBytes(CKA_OBJECT_ID, oid ? objectIdentifierDer(*oid) : Bytes());
    auto object = std::make_unique<Object>(handle, data, std::move(attributes));
    object->defer({CKA_VALUE}, [&repository, &channel, data](Attributes& a) {
        if (data->getValue().empty()) {
            repository.readCardObject(channel, *data);
        }
        a.setBytes(CKA_VALUE, bytesOf(data->getValue()));
    });
    return object;
}

bool isCertifiedKey(const Object& object) {
    return object.objectClass() == CKO_PUBLIC_KEY &&
           dynamic_cast<const ICertificate*>(object.source().get());
}

namespace {

// The objects of one kind, or none when the kind's directory file does not
// decode: one corrupt file leaves the other kinds usable, and the trace says
// what was left out. A card error (a removed card, a refused command) ends
// the listing as before.
template <class List>
List decodedOrNone(const char* kind, List (Repository::*fetch)(const card::IChannel&) const,
                   const Repository& repository, const card::IChannel& channel) {
    try {
        return (repository.*fetch)(channel);
    } catch (const app::InvalidDataException& error) {
        const std::string* file = boost::get_error_info<app::ErrorDetail>(error);
        mw::Log log(typeid(Object), "listObjects");
        log.addParamOut(std::string("left out ") + kind,
                        (file ? *file + ": " : std::string()) + host::errorMessage(error));
        return {};
    }
}

} // namespace

Objects listObjects(const Repository& repository, const card::IChannel& channel,
                    CK_OBJECT_HANDLE& nextHandle) {
    Objects objects;
    const auto certificates =
        decodedOrNone("certificates", &Repository::getCertificates, repository, channel);
    const auto certificateWithId = [&](const mw::ByteBuffer& id) {
        const auto found =
            std::find_if(certificates.begin(), certificates.end(), [&](const auto& certificate) {
                return certificate->getCertificateId() == id;
            });
        return found == certificates.end() ? nullptr : *found;
    };
    // A key whose entry names no subject shows its certificate's.
    const auto subjectFromCertificate = [&](Object& object, const auto& key) {
        const auto certificate = certificateWithId(key.getKeyId());
        if (!key.getSubjectName() && certificate) {
            object.defer({CKA_SUBJECT}, certifiedSubject(repository, channel, certificate));
        }
    };
    std::vector<boost::shared_ptr<IPublicRSAKey>> publicKeys;
    for (const auto& key :
         decodedOrNone("public keys", &Repository::getPublicKeys, repository, channel)) {
        if (auto rsa = boost::dynamic_pointer_cast<IPublicRSAKey>(key)) {
            publicKeys.push_back(rsa);
            objects.push_back(publicKeyObject(rsa, nextHandle++, repository, channel));
            subjectFromCertificate(*objects.back(), *rsa);
        }
    }
    const auto publicKeyWithId = [&](const mw::ByteBuffer& id) {
        const auto found = std::find_if(publicKeys.begin(), publicKeys.end(),
                                        [&](const auto& key) { return key->getKeyId() == id; });
        return found == publicKeys.end() ? nullptr : *found;
    };
    for (const auto& certificate : certificates) {
        objects.push_back(certificateObject(certificate, nextHandle++, repository, channel));
        if (!publicKeyWithId(certificate->getCertificateId())) {
            objects.push_back(certifiedKeyObject(certificate, nextHandle++, repository, channel));
        }
    }
    for (const auto& key :
         decodedOrNone("private keys", &Repository::getPrivateKeys, repository, channel)) {
        auto rsa = boost::dynamic_pointer_cast<IPrivateRSAKey>(key);
        if (!rsa) {
            continue;
        }
        const auto pair = publicKeyWithId(rsa->getKeyId());
        objects.push_back(privateKeyObject(rsa, pair, nextHandle++, repository, channel));
        if (const auto certificate = certificateWithId(rsa->getKeyId()); !pair && certificate) {
            objects.back()->defer({CKA_MODULUS, CKA_PUBLIC_EXPONENT},
                                  certifiedKey(repository, channel, certificate));
        }
        subjectFromCertificate(*objects.back(), *rsa);
    }
    for (const auto& data :
         decodedOrNone("data objects", &Repository::getDataObjects, repository, channel)) {
        objects.push_back(dataObject(data, nextHandle++, repository, channel));
    }
    return objects;
}

} // namespace pkcs11
