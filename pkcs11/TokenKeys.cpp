// Key pairs generated on the card for C_GenerateKeyPair.
#include "pkcs11/ObjectList.hpp"
#include "pkcs11/Token.hpp"

#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
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
        const CK_ATTRIBUTE byId{CKA_ID, const_cast<unsigned char*>(id.data()), id.size()};
        const bool used = std::any_of(objects().begin(), objects().end(), [&](const auto& object) {
            return object->attributesFor(&byId, 1).matches(&byId, 1);
        });
        if (!used) {
            return mw::ByteBuffer(id);
        }
    }
    throw Failure(CKR_DEVICE_MEMORY, "no key id left");
}

std::pair<CK_OBJECT_HANDLE, CK_OBJECT_HANDLE>
Token::generateKeyPair(const KeyPairRequest& request) {
    auto* factory = dynamic_cast<ICardObjectFactory*>(application_.get());
    if (!factory) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the application makes no new objects");
    }
    const mw::ByteBuffer id = request.id.empty() ? unusedKeyId() : request.id;
    const auto& authId = userPin().getAuthId();
    const app::AccessControlRules userOnly{
        app::AccessControlRule(app::AccessControlRule::Read | app::AccessControlRule::Update |
                                   app::AccessControlRule::Execute,
                               boost::make_shared<app::AuthIdSecurityCondition>(
                                   std::vector<std::uint8_t>(authId.begin(), authId.end())))};

    auto privateKey = boost::dynamic_pointer_cast<IPrivateRSAKey>(
        factory->createPrivateKey(IPrivateKey::RsaPrivateKey, userOnly));
    auto publicKey = boost::dynamic_pointer_cast<IPublicRSAKey>(
        factory->createPublicKey(IPublicKey::RsaPublicKey, {}));
    if (!privateKey || !publicKey) {
        throw Failure(CKR_FUNCTION_NOT_SUPPORTED, "the application makes no RSA keys");
    }
    privateKey->setLabel(request.label);
    privateKey->setFlags(modifiableFlag | (request.privateObject ? privateFlag : 0));
    privateKey->setKeyId(id);
    privateKey->setUsage(request.privateUsage);
    privateKey->setModulusLength(request.bits);
    publicKey->setLabel(request.label);
    publicKey->setFlags(modifiableFlag);
    publicKey->setKeyId(id);
    publicKey->setUsage(request.publicUsage);
    publicKey->setModulusLength(request.bits);
    application_->getKeyPairGenerator(rsaEncryption)->generate(channel(), privateKey, publicKey);

    Objects& list = objects();
    list.push_back(publicKeyObject(publicKey, nextHandle_++, *repository_, channel()));
    list.push_back(privateKeyObject(privateKey, publicKey, nextHandle_++, *repository_, channel()));
    return {list[list.size() - 2]->handle(), list.back()->handle()};
}

} // namespace pkcs11
