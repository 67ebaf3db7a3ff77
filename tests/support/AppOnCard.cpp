#include "AppOnCard.hpp"

#include "app/SecurityConditions.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "host/iso7816/Applet.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>

namespace support {

const char* const userPin = "123456";
const char* const puk = "12345678";

namespace {

mw::ByteBuffer bytesOf(const CryptoPP::Integer& value) {
    mw::ByteBuffer bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

// One key for the whole process, so that importing it again writes the same
// bytes.
const CryptoPP::InvertibleRSAFunction& processKey() {
    static const CryptoPP::InvertibleRSAFunction key = [] {
        CryptoPP::AutoSeededRandomPool rng;
        CryptoPP::InvertibleRSAFunction made;
        made.Initialize(rng, 1024, 65537);
        return made;
    }();
    return key;
}

} // namespace

AppOnCard::AppOnCard(const std::string& image, const TransportWrapper& wrap)
    : AppOnCard(vcard::CardImage::parse(image, "image"), wrap) {}

AppOnCard::AppOnCard(vcard::CardState state, const TransportWrapper& wrap,
                     std::optional<std::string> imagePath)
    : virtualCard(std::make_shared<vcard::VirtualCard>(std::move(state), std::move(imagePath))) {
    std::unique_ptr<card::ICardTransport> transport =
        std::make_unique<host::VirtualCardTransport>(virtualCard, host::OnRelease::KeepLogin);
    if (wrap) {
        transport = wrap(std::move(transport));
    }
    channel = boost::make_shared<host::Channel>(std::move(transport));
    session = boost::make_shared<host::iso7816::CardSession>(channel);
    card = boost::make_shared<host::iso7816::Card>(session);
}

boost::shared_ptr<app::pkcs15::P15Application> AppOnCard::open() const {
    auto application = boost::make_shared<app::pkcs15::P15Application>(
        boost::shared_ptr<const card::ICard>(card), "test", "");
    application->select(*channel);
    return application;
}

boost::shared_ptr<app::pkcs15::P15Application> AppOnCard::reopen() const {
    virtualCard->reset();
    return open();
}

void AppOnCard::verifyUserPin(const app::pkcs15::P15Application& application) const {
    const auto pins = application.getAuthObjects(*channel);
    boost::dynamic_pointer_cast<app::object::IPin>(pins.at(0))
        ->authenticate(*channel, ascii(userPin));
}

app::AccessControlRules userPinRules() {
    return {app::AccessControlRule(
        app::AccessControlRule::Read | app::AccessControlRule::Update |
            app::AccessControlRule::Execute,
        boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{0x01}))};
}

mw::ByteBuffer ascii(const std::string& text) {
    return mw::ByteBuffer(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

void importKeyPair(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                   const std::string& label) {
    const CryptoPP::InvertibleRSAFunction& key = processKey();
    const CryptoPP::Integer& p = key.GetPrime1();
    const CryptoPP::Integer& q = key.GetPrime2();
    const mw::ByteBuffer keyId = ascii(label.substr(0, 4));

    auto privateKey = boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(
        application.createPrivateKey(app::object::IPrivateKey::RsaPrivateKey, userPinRules()));
    privateKey->setLabel(label);
    privateKey->setKeyId(keyId);
    privateKey->setUsage(app::object::IKey::Sign | app::object::IKey::Decrypt);
    privateKey->setPublicExponent(bytesOf(key.GetPublicExponent()));
    privateKey->setCrtComponents(bytesOf(p), bytesOf(q), bytesOf(key.GetModPrime1PrivateExponent()),
                                 bytesOf(key.GetModPrime2PrivateExponent()),
                                 bytesOf(p.InverseMod(q)),
                                 bytesOf(key.GetMultiplicativeInverseOfPrime2ModPrime1()));
    application.writeCardObject(channel, *privateKey);

    auto publicKey = boost::dynamic_pointer_cast<app::object::IPublicRSAKey>(
        application.createPublicKey(app::object::IPublicKey::RsaPublicKey, {}));
    publicKey->setLabel(label);
    publicKey->setKeyId(keyId);
    publicKey->setUsage(app::object::IKey::Verify);
    publicKey->setModulusLength(1024);
    publicKey->setModulus(bytesOf(key.GetModulus()));
    publicKey->setPublicExponent(bytesOf(key.GetPublicExponent()));
    application.writeCardObject(channel, *publicKey);
}

mw::ByteBuffer importedKeyPrime() {
    return bytesOf(processKey().GetPrime1());
}

const std::string& cardWithKeyImage() {
    static const std::string image = [] {
        AppOnCard fresh(vcard::CardImage::serialise(vcard::personalise()));
        const auto application = fresh.open();
        fresh.verifyUserPin(*application);
        importKeyPair(*application, *fresh.channel, "Signing key");
        return vcard::CardImage::serialise(fresh.virtualCard->state());
    }();
    return image;
}

} // namespace support
