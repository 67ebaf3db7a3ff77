#include "host/iso7816/AsymmetricKeyManagementService.hpp"

#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "host/iso7816/Tlv.hpp"
#include "mw/Exception.hpp"

namespace host {
namespace iso7816 {

namespace {

using card::crypto::spec::RsaPrivateCrtKeySpec;
using card::crypto::spec::RsaPublicKeySpec;
using card::service::KeyRef;

const char* const generateName = "Generate Asymmetric Key Pair";
constexpr unsigned char generateIns = 0x46;
constexpr unsigned char generateNew = 0x00;
constexpr unsigned char readExisting = 0x01;
constexpr unsigned int publicKeyTemplate = 0x7F49;
constexpr unsigned int privateKeyTemplate = 0x7F48;
constexpr unsigned int modulusTag = 0x81;
constexpr unsigned int exponentTag = 0x82;

RsaPublicKeySpec publicKeyOf(const mw::ByteBuffer& answer) {
    const Tlv key = expectTlv(answer, publicKeyTemplate);
    const std::optional<Tlv> modulus = TlvReader(answer, key).find(modulusTag);
    const std::optional<Tlv> exponent = TlvReader(answer, key).find(exponentTag);
    if (!modulus || !exponent || modulus->length == 0 || exponent->length == 0) {
        CARD_THROW(card::InvalidDataException()
                   << card::ErrorText("public key template without modulus or exponent"));
    }
    return RsaPublicKeySpec(tlvValue(answer, *modulus), tlvValue(answer, *exponent));
}

RsaPublicKeySpec parsePublicKey(const mw::ByteBuffer& answer) {
    return parseAnswerOf(generateName, [&] { return publicKeyOf(answer); });
}

mw::ByteBuffer encodePrivateKey(const RsaPrivateCrtKeySpec& spec) {
    mw::ByteBuffer components;
    appendTlv(components, 0x91, spec.getPublicExponent());
    appendTlv(components, 0x92, spec.getP());
    appendTlv(components, 0x93, spec.getQ());
    appendTlv(components, 0x94, spec.getQInv());
    appendTlv(components, 0x95, spec.getDp());
    appendTlv(components, 0x96, spec.getDq());
    mw::ByteBuffer key;
    appendTlv(key, privateKeyTemplate, components);
    return key;
}

} // namespace

AsymmetricKeyManagementService::AsymmetricKeyManagementService(
    boost::shared_ptr<FileSelection> selection,
    boost::shared_ptr<const FileSystemService> fileSystem)
    : selection_(std::move(selection))
    , fileSystem_(std::move(fileSystem)) {}

RsaPublicKeySpec AsymmetricKeyManagementService::generateKeyPair(const card::IChannel& channel,
                                                                 const KeyRef& privateKey,
                                                                 const KeyRef& publicKey) const {
    if (privateKey.keyReference != publicKey.keyReference) {
        MW_THROW(mw::IllegalArgumentException, "the card keeps a key pair under one key reference");
    }
    const unsigned short bits = privateKey.modulusBits;
    const auto held = card::Transaction::join(channel);
    selection_->enterApplication(held);
    const bool extended = selection_->extendedLength(held.transport());
    return parsePublicKey(
        IsoCommand(generateName, generateIns, generateNew, privateKey.keyReference)
            .withData({0x80, 0x02, static_cast<unsigned char>(bits >> 8),
                       static_cast<unsigned char>(bits)})
            .extendedLength(extended)
            .expecting(longestAnswer(extended))
            .execute(held));
}

void AsymmetricKeyManagementService::removePrivateKey(const card::IChannel& channel,
                                                      const KeyRef& key) const {
    fileSystem_->deleteFile(channel, keyFileId(key, privateKeyFilePrefix));
}

void AsymmetricKeyManagementService::removePublicKey(const card::IChannel& channel,
                                                     const KeyRef& key) const {
    fileSystem_->deleteFile(channel, keyFileId(key, publicKeyFilePrefix));
}

RsaPublicKeySpec AsymmetricKeyManagementService::readPublicKey(const card::IChannel& channel,
                                                               const KeyRef& key) const {
    const auto held = card::Transaction::join(channel);
    selection_->enterApplication(held);
    const bool extended = selection_->extendedLength(held.transport());
    return parsePublicKey(IsoCommand(generateName, generateIns, readExisting, key.keyReference)
                              .extendedLength(extended)
                              .expecting(longestAnswer(extended))
                              .execute(held));
}

void AsymmetricKeyManagementService::importPrivateKey(const card::IChannel& channel,
                                                      const KeyRef& key,
                                                      const RsaPrivateCrtKeySpec& spec) const {
    const auto held = card::Transaction::join(channel);
    selection_->enterApplication(held);
    IsoCommand("Put Data", 0xDB, 0x00, key.keyReference)
        .withData(encodePrivateKey(spec))
        .extendedLength(selection_->extendedLength(held.transport()))
        .execute(held);
}

} // namespace iso7816
} // namespace host
