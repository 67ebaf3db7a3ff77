// Objects the token makes and removes: key pairs generated on the card,
// certificates and data objects stored there, and their removal.
#include "pkcs11/ObjectIdentifier.hpp"
#include "pkcs11/ObjectList.hpp"
#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IDataObject.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "pkcs11/CertificateFields.hpp"
#include "pkcs11/Errors.hpp"

#include <boost/make_shared.hpp>

namespace pkcs11 {

namespace {

using namespace app::object;

const char* const rsaEncryption = "1.2.840.113549.1.1.1";
constexpr std::uint8_t privateFlag = 0x02;
constexpr std::uint8_t modifiableFlag = 0x01;
// Key ids the module chooses: 45 01, 45 02, ...
constexpr unsigned char chosenIdPrefix = 0x45;

} // namespace

mw::ByteBuffer Token::unusedKeyId() {
    for (unsigned number = 1; number <= 0xFF; ++number) {
        const Bytes id{chosenIdPrefix, static_cast<unsigned char>(number)};
        if (!idTaken(id)) {
            return mw::ByteBuffer(id);
        }
    }
    throw Failure(CKR_DEVICE_MEMORY, "no key id left");
}

ICardObjectFactory& Token::factory() const {
    auto* factory = dynamic_cast<ICardObjectFactory*>(application_.get());
    if (!factory) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the application makes no new objects");
    }
    return *factory;
}

app::AccessControlRules Token::userPinRules(std::uint16_t modes) {
    const auto& authId = userPin().getAuthId();
    return {app::AccessControlRule(modes,
                                   boost::make_shared<app::AuthIdSecurityCondition>(
                                       std::vector<std::uint8_t>(authId.begin(), authId.end())))};
}

std::pair<CK_OBJECT_HANDLE, CK_OBJECT_HANDLE>
Token::generateKeyPair(const KeyPairRequest& request) {
    // Listed before the card makes the pair, which is then added once.
    Objects& list = objects();
    if (!request.id.empty() && idTaken(Bytes(request.id.begin(), request.id.end()))) {
        // Another key's or certificate's id would pair the new key with it.
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "CKA_ID names an object on the card already");
    }
    const mw::ByteBuffer id = request.id.empty() ? unusedKeyId() : request.id;
    auto privateKey = boost::dynamic_pointer_cast<IPrivateRSAKey>(factory().createPrivateKey(
        IPrivateKey::RsaPrivateKey,
        userPinRules(app::AccessControlRule::Read | app::AccessControlRule::Update |
                     app::AccessControlRule::Execute)));
    auto publicKey = boost::dynamic_pointer_cast<IPublicRSAKey>(
        factory().createPublicKey(IPublicKey::RsaPublicKey, {}));
    if (!privateKey || !publicKey) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the application makes no RSA keys");
    }
    privateKey->setLabel(request.label);
    privateKey->setFlags(modifiableFlag | (request.privateObject ? privateFlag : 0));
    privateKey->setKeyId(id);
    privateKey->setUsage(request.privateUsage);
    privateKey->setModulusLength(request.bits);
    // Made on the card, the private key never was anywhere else.
    privateKey->setAccessFlags(IKey::Sensitive | IKey::AlwaysSensitive | IKey::NeverExtractable |
                               IKey::LocalKey);
    publicKey->setAccessFlags(IKey::LocalKey);
    publicKey->setLabel(request.label);
    publicKey->setFlags(modifiableFlag);
    publicKey->setKeyId(id);
    publicKey->setUsage(request.publicUsage);
    publicKey->setModulusLength(request.bits);
    application_->getKeyPairGenerator(rsaEncryption)->generate(channel(), privateKey, publicKey);

    keep(publicKeyObject(publicKey, nextHandle_++, *repository_, channel()));
    keep(privateKeyObject(privateKey, publicKey, nextHandle_++, *repository_, channel()));
    return {list[list.size() - 2]->handle(), list.back()->handle()};
}

namespace {

// A C_CreateObject template, by attribute.
class Template {
public:
    Template(const CK_ATTRIBUTE* entries, CK_ULONG count)
        : entries_(entries, entries + count) {}

    const CK_ATTRIBUTE* find(CK_ATTRIBUTE_TYPE type) const {
        for (const CK_ATTRIBUTE& entry : entries_) {
            if (entry.type == type) {
                return &entry;
            }
        }
        return nullptr;
    }
    CK_ULONG number(CK_ATTRIBUTE_TYPE type, CK_ULONG absent) const {
        const CK_ATTRIBUTE* entry = find(type);
        return entry ? ulongOf(*entry) : absent;
    }
    bool flag(CK_ATTRIBUTE_TYPE type, bool absent) const {
        const CK_ATTRIBUTE* entry = find(type);
        return entry ? boolOf(*entry) : absent;
    }
    Bytes bytes(CK_ATTRIBUTE_TYPE type) const {
        const CK_ATTRIBUTE* entry = find(type);
        return entry ? valueOf(*entry) : Bytes();
    }
    std::string text(CK_ATTRIBUTE_TYPE type) const {
        const Bytes value = bytes(type);
        return std::string(value.begin(), value.end());
    }
    mw::ByteBuffer required(CK_ATTRIBUTE_TYPE type) const {
        if (!find(type)) {
            throw Failure(CKR_TEMPLATE_INCOMPLETE);
        }
        return mw::ByteBuffer(bytes(type));
    }

private:
    std::vector<CK_ATTRIBUTE> entries_;
};

// A certificate's value goes to the card as given and every client parses
// it: it must be one certificate in DER.
void checkCertificateValue(const mw::ByteBuffer& value) {
    if (!isDerCertificate(Bytes(value.begin(), value.end()))) {
        throw Failure(CKR_ATTRIBUTE_VALUE_INVALID,
                      "CKA_VALUE is no X.509 certificate in DER, or has bytes after it");
    }
}

} // namespace

CK_OBJECT_HANDLE Token::createObject(const CK_ATTRIBUTE* entries, CK_ULONG count) {
    const Template given(entries, count);
    if (!given.flag(CKA_TOKEN, true)) {
        throw Failure(CKR_TEMPLATE_INCONSISTENT, "the module keeps no session objects");
    }
    const bool isPrivate = given.flag(CKA_PRIVATE, false);
    // Only the user replaces or removes the value's file; reads it too when private.
    const app::AccessControlRules rules = userPinRules(
        app::AccessControlRule::Update | (isPrivate ? app::AccessControlRule::Read : 0));
    const std::uint8_t flags = modifiableFlag | (isPrivate ? privateFlag : 0);
    Objects& list = objects();
    switch (given.number(CKA_CLASS, CK_UNAVAILABLE_INFORMATION)) {
    case CKO_CERTIFICATE: {
        if (given.number(CKA_CERTIFICATE_TYPE, CKC_X_509) != CKC_X_509) {
            throw Failure(CKR_ATTRIBUTE_VALUE_INVALID, "only X.509 certificates");
        }
        const mw::ByteBuffer value = given.required(CKA_VALUE);
        checkCertificateValue(value);
        auto certificate = factory().createCertificate(ICertificate::X509Certificate, rules);
        certificate->setValue(value);
        certificate->setCertificateId(mw::ByteBuffer(given.bytes(CKA_ID)));
        certificate->setLabel(given.text(CKA_LABEL));
        certificate->setFlags(flags);
        repository_->writeCardObject(channel(), *certificate);
        // Listed as a fresh listing would: with its public key when no entry has it.
        const bool hasPublicKey = idTaken(given.bytes(CKA_ID), CKO_PUBLIC_KEY);
        keep(certificateObject(certificate, nextHandle_++, *repository_, channel()));
        const CK_OBJECT_HANDLE stored = list.back()->handle();
        if (!hasPublicKey) {
            keep(certifiedKeyObject(certificate, nextHandle_++, *repository_, channel()));
        }
        return stored;
    }
    case CKO_DATA: {
        // An object identifier goes into the opaque object's applicationOID:
        // the plugin makes no other kind of data object.
        const Bytes oid = given.bytes(CKA_OBJECT_ID);
        const mw::ByteBuffer oidContent =
            oid.empty() ? mw::ByteBuffer() : objectIdentifierContent(oid);
        auto data = factory().createDataObject(IDataObject::OpaqueDataObject, rules);
        data->setValue(given.required(CKA_VALUE));
        data->setLabel(given.text(CKA_LABEL));
        data->setFlags(flags);
        if (given.find(CKA_APPLICATION)) {
            data->setApplicationName(given.text(CKA_APPLICATION));
        }
        if (!oidContent.empty()) {
            data->setApplicationOid(oidContent);
        }
        repository_->writeCardObject(channel(), *data);
        keep(dataObject(data, nextHandle_++, *repository_, channel()));
        break;
    }
    default:
        throw Failure(CKR_TEMPLATE_INCONSISTENT, "only certificates and data objects are made");
    }
    return list.back()->handle();
}

void Token::destroyObject(CK_OBJECT_HANDLE handle) {
    Object& doomed = object(handle);
    if (isCertifiedKey(doomed)) {
        throw Failure(CKR_ACTION_PROHIBITED, "the key is part of its certificate");
    }
    const boost::shared_ptr<ICardObject> source = doomed.source();
    repository_->deleteCardObject(channel(), *source);
    // A certificate takes the public key shown from it along.
    Objects& list = objects();
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const auto& object) { return object->source() == source; }),
               list.end());
}

} // namespace pkcs11
