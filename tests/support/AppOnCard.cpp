#include "AppOnCard.hpp"

#include "app/SecurityConditions.hpp"
#include "card/Apdu.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <fstream>
#include <iterator>
#include <map>

namespace support {

const char* const userPin = "123456";
const char* const puk = "12345678";

boost::shared_ptr<mw::ByteBuffer> RecordingTransport::transmit(const card::Apdu& command) const {
    sent_.push_back(command.bytes());
    const auto found = std::find_if(overrides_.begin(), overrides_.end(),
                                    [&](const auto& o) { return o.first == command.bytes(); });
    if (found == overrides_.end()) {
        return inner_->transmit(command);
    }
    return boost::make_shared<mw::ByteBuffer>(mw::ByteBuffer{
        static_cast<unsigned char>(found->second >> 8), static_cast<unsigned char>(found->second)});
}

std::vector<mw::ByteBuffer> RecordingTransport::sent(unsigned char ins) const {
    std::vector<mw::ByteBuffer> matching;
    std::copy_if(sent_.begin(), sent_.end(), std::back_inserter(matching),
                 [ins](const mw::ByteBuffer& command) { return command.get(1) == ins; });
    return matching;
}

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
    auto recording = std::make_unique<RecordingTransport>(std::move(transport));
    recorder = recording.get();
    channel = boost::make_shared<host::Channel>(std::move(recording));
    session = boost::make_shared<host::iso7816::CardSession>(channel);
    card = boost::make_shared<host::iso7816::Card>(session);
}

boost::shared_ptr<app::pkcs15::P15Application>
AppOnCard::open(const std::string& configuration) const {
    auto application = boost::make_shared<app::pkcs15::P15Application>(
        boost::shared_ptr<const card::ICard>(card), "test", configuration);
    application->select(*channel);
    return application;
}

std::uint64_t AppOnCard::commands() const {
    return virtualCard->instrumentation().counters().commands;
}

boost::shared_ptr<app::pkcs15::P15Application> AppOnCard::reopen() const {
    virtualCard->reset();
    return open();
}

void AppOnCard::verifyUserPin(const app::pkcs15::P15Application& application) const {
    pinAt(application, *channel)->authenticate(*channel, ascii(userPin));
}

boost::shared_ptr<card::service::IFileAccessService> AppOnCard::files() const {
    return boost::dynamic_pointer_cast<card::service::IFileAccessService>(
        card->getInterface("FileAccessService"));
}

mw::ByteBuffer AppOnCard::readFile(const mw::ByteBuffer& fileId) const {
    files()->select(*channel, fileId);
    return files()->read(*channel, 0, 0);
}

app::AccessControlRules userPinRules() {
    return {app::AccessControlRule(
        app::AccessControlRule::Read | app::AccessControlRule::Update |
            app::AccessControlRule::Execute,
        boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{0x01}))};
}

boost::shared_ptr<app::object::IPin> pinAt(const app::object::ICardObjectRepository& repository,
                                           const card::IChannel& channel, std::size_t index) {
    return boost::dynamic_pointer_cast<app::object::IPin>(
        repository.getAuthObjects(channel).at(index));
}

mw::ByteBuffer ascii(const std::string& text) {
    return mw::ByteBuffer(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

const RsaKeyMaterial& rsaKey(unsigned int bits) {
    static std::map<unsigned int, RsaKeyMaterial> keys;
    if (!keys.count(bits)) {
        CryptoPP::AutoSeededRandomPool rng;
        CryptoPP::InvertibleRSAFunction key;
        key.Initialize(rng, bits, 65537);
        const CryptoPP::Integer &p = key.GetPrime1(), &q = key.GetPrime2();
        std::vector<mw::ByteBuffer> parts;
        for (const CryptoPP::Integer& value :
             {key.GetModulus(), key.GetPublicExponent(), p, q, key.GetModPrime1PrivateExponent(),
              key.GetModPrime2PrivateExponent(), p.InverseMod(q),
              key.GetMultiplicativeInverseOfPrime2ModPrime1()}) {
            value.Encode(parts.emplace_back(value.MinEncodedSize()).data(), value.MinEncodedSize());
        }
        keys[bits] = {parts[0], parts[1], parts[2], parts[3],
                      parts[4], parts[5], parts[6], parts[7]};
    }
    return keys[bits];
}

RsaKeyPair newKeyPair(const app::object::ICardObjectFactory& factory, const std::string& label,
                      std::uint16_t privateBits, std::uint16_t publicBits) {
    using app::object::IKey;
    RsaKeyPair pair{
        boost::dynamic_pointer_cast<app::object::IPrivateRSAKey>(
            factory.createPrivateKey(app::object::IPrivateKey::RsaPrivateKey, userPinRules())),
        boost::dynamic_pointer_cast<app::object::IPublicRSAKey>(
            factory.createPublicKey(app::object::IPublicKey::RsaPublicKey, {}))};
    pair.privateKey->setUsage(IKey::Sign | IKey::Decrypt);
    pair.publicKey->setUsage(IKey::Verify | IKey::Encrypt);
    for (IKey* key :
         {static_cast<IKey*>(pair.privateKey.get()), static_cast<IKey*>(pair.publicKey.get())}) {
        key->setLabel(label);
        key->setKeyId(ascii(label));
    }
    if (privateBits != 0) {
        pair.privateKey->setModulusLength(privateBits);
    }
    if (publicBits != 0) {
        pair.publicKey->setModulusLength(publicBits);
    }
    return pair;
}

RsaKeyPair newKeyPair(const app::object::ICardObjectFactory& factory, const std::string& label,
                      const RsaKeyMaterial& key) {
    const RsaKeyPair pair =
        newKeyPair(factory, label, 0, static_cast<std::uint16_t>(key.modulus.size() * 8));
    pair.privateKey->setPublicExponent(key.exponent);
    pair.privateKey->setCrtComponents(key.p, key.q, key.dp, key.dq, key.pInv, key.qInv);
    pair.publicKey->setModulus(key.modulus);
    pair.publicKey->setPublicExponent(key.exponent);
    return pair;
}

void importKeyPair(const app::pkcs15::P15Application& application, const card::IChannel& channel,
                   const std::string& label) {
    const RsaKeyPair pair = newKeyPair(application, label, rsaKey());
    application.writeCardObject(channel, *pair.privateKey);
    application.writeCardObject(channel, *pair.publicKey);
}

mw::ByteBuffer certificateFile(const std::string& name) {
    std::ifstream file(std::string(P15_CERTS_DIR) + "/" + name, std::ios::binary);
    return mw::ByteBuffer(std::vector<unsigned char>{std::istreambuf_iterator<char>(file), {}});
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
