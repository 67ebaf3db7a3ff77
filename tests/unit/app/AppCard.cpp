#include "AppCard.hpp"

#include "app/pkcs15/oss/Codec.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

namespace apptest {

boost::shared_ptr<app::pkcs15::P15Application>
AppCard::appletApplication(const std::string& configuration) const {
    auto applet = boost::make_shared<host::iso7816::Applet>(session, host::iso7816::pkcs15Aid());
    auto application = boost::make_shared<app::pkcs15::P15Application>(
        boost::shared_ptr<const card::IApplet>(applet), "test", configuration);
    application->select(*channel);
    return application;
}

void AppCard::verifyPin(unsigned char reference, const std::string& value) const {
    service<card::service::IPinManagementService>("PinManagementService")
        ->authenticate(*channel, hosttest::pinReference(reference), hosttest::paddedPin(value));
}

namespace {

card::service::AccessConditions openToAll() {
    using namespace card::service;
    return {
        {AccessRead | AccessUpdate | AccessExecute, boost::make_shared<AlwaysSecurityCondition>()}};
}

} // namespace

void AppCard::createValueFile(const mw::ByteBuffer& path, std::size_t size) const {
    service<card::service::IFileSystemService>("FileSystemService")
        ->createFile(*channel, card::service::DataObjectCreateParams(path, size, openToAll()));
}

void AppCard::createKeyPair(unsigned char reference) const {
    card::service::KeyRef privateKey, publicKey;
    privateKey.keyReference = publicKey.keyReference = reference;
    privateKey.modulusBits = publicKey.modulusBits = 1024;
    const auto fileSystem = service<card::service::IFileSystemService>("FileSystemService");
    fileSystem->createFile(*channel,
                           card::service::PrivateKeyCreateParams(privateKey, openToAll()));
    fileSystem->createFile(*channel, card::service::PublicKeyCreateParams(publicKey, openToAll()));
    service<card::service::IAsymmetricKeyManagementService>("AsymmetricKeyManagementService")
        ->generateKeyPair(*channel, privateKey, publicKey);
}

void AppCard::writeFile(const mw::ByteBuffer& fileId, const mw::ByteBuffer& content) const {
    files()->select(*channel, fileId);
    mw::ByteBuffer padded(files()->size(*channel));
    std::copy(content.begin(), content.end(), padded.begin());
    files()->update(*channel, 0, padded);
}

mw::ByteBuffer bytes(const std::vector<std::uint8_t>& value) {
    return mw::ByteBuffer(value);
}

mw::ByteBuffer concat(std::initializer_list<mw::ByteBuffer> parts) {
    mw::ByteBuffer joined;
    for (const mw::ByteBuffer& part : parts) {
        joined.append(part);
    }
    return joined;
}

namespace {

namespace oss = app::pkcs15::oss;

oss::Bytes toBytes(const mw::ByteBuffer& buffer) {
    return {buffer.begin(), buffer.end()};
}

oss::ObjectValue indirect(const mw::ByteBuffer& path) {
    oss::ObjectValue value;
    value.indirectValue.pathValue.path = toBytes(path);
    return value;
}

template <class KeyObject>
void describeKey(KeyObject& key, unsigned char keyReference, const mw::ByteBuffer& keyFile,
                 unsigned short modulusBits) {
    key.commonObjectAttributes.label = "key " + std::to_string(keyReference);
    key.classAttributes.iD = {keyReference};
    key.classAttributes.usage = {{0x20, 0x00}, 10}; // sign
    key.classAttributes.keyReference = keyReference;
    key.typeAttributes.value = indirect(keyFile);
    key.typeAttributes.modulusLength = modulusBits;
}

} // namespace

mw::ByteBuffer rsaPrivateKeyEntry(unsigned char keyReference, const mw::ByteBuffer& keyFile,
                                  unsigned short modulusBits) {
    oss::PrivateKeyType key;
    describeKey(key.privateRSAKeyValue, keyReference, keyFile, modulusBits);
    return mw::ByteBuffer(oss::encode(key));
}

mw::ByteBuffer rsaPublicKeyEntry(unsigned char keyReference, const mw::ByteBuffer& keyFile,
                                 unsigned short modulusBits) {
    oss::PublicKeyType key;
    describeKey(key.publicRSAKeyValue, keyReference, keyFile, modulusBits);
    return mw::ByteBuffer(oss::encode(key));
}

mw::ByteBuffer certificateEntry(const std::string& label, const mw::ByteBuffer& valueFile) {
    oss::CertificateType certificate;
    certificate.x509CertificateValue.commonObjectAttributes.label = label;
    certificate.x509CertificateValue.classAttributes.iD = {0x45};
    certificate.x509CertificateValue.typeAttributes.value = indirect(valueFile);
    return mw::ByteBuffer(oss::encode(certificate));
}

mw::ByteBuffer dataObjectEntry(const std::string& label, const mw::ByteBuffer& valueFile) {
    oss::DataType data;
    data.opaqueDOValue.commonObjectAttributes.label = label;
    data.opaqueDOValue.typeAttributes = indirect(valueFile);
    return mw::ByteBuffer(oss::encode(data));
}

mw::ByteBuffer ecPrivateKeyEntry() {
    // [0] { CommonObjectAttributes {}, CommonKeyAttributes { iD 45, usage } }
    return bytes({0xA0, 0x0A, 0x30, 0x00, 0x30, 0x06, 0x04, 0x01, 0x45, 0x03, 0x01, 0x00});
}

} // namespace apptest
