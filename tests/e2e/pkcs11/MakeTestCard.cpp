// Makes the virtual card the PKCS#11 tests run against: a personalised
// image with a 2048-bit RSA key pair ("Signing key", id 45 01) imported
// through the plugin, and the public key written beside it as DER
// SubjectPublicKeyInfo for the tools that check signatures; with a third
// argument the private key too (PKCS#8 DER), for tests that sign and
// decipher in software what the module verifies and enciphers.
// Usage: p15-pkcs11-testcard IMAGE PUBLIC_KEY_DER [PRIVATE_KEY_DER]
#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "host/Channel.hpp"
#include "host/ErrorMessage.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/ConfigurationSource.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <cryptopp/files.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <iostream>

namespace {

using namespace app::object;

mw::ByteBuffer bytesOf(const CryptoPP::Integer& value) {
    mw::ByteBuffer bytes(value.MinEncodedSize());
    value.Encode(bytes.data(), bytes.size());
    return bytes;
}

app::AccessControlRules userPinRules() {
    return {app::AccessControlRule(
        app::AccessControlRule::Read | app::AccessControlRule::Update |
            app::AccessControlRule::Execute,
        boost::make_shared<app::AuthIdSecurityCondition>(std::vector<std::uint8_t>{0x01}))};
}

void importKey(ICardObjectFactory& factory, const ICardObjectRepository& repository,
               const card::IChannel& channel, const CryptoPP::InvertibleRSAFunction& key) {
    const mw::ByteBuffer id{0x45, 0x01};
    const CryptoPP::Integer& p = key.GetPrime1();
    const CryptoPP::Integer& q = key.GetPrime2();
    auto privateKey = boost::dynamic_pointer_cast<IPrivateRSAKey>(
        factory.createPrivateKey(IPrivateKey::RsaPrivateKey, userPinRules()));
    privateKey->setLabel("Signing key");
    privateKey->setFlags(0x03); // private, modifiable
    privateKey->setKeyId(id);
    privateKey->setUsage(IKey::Sign | IKey::Decrypt);
    privateKey->setPublicExponent(bytesOf(key.GetPublicExponent()));
    privateKey->setCrtComponents(bytesOf(p), bytesOf(q), bytesOf(key.GetModPrime1PrivateExponent()),
                                 bytesOf(key.GetModPrime2PrivateExponent()),
                                 bytesOf(p.InverseMod(q)),
                                 bytesOf(key.GetMultiplicativeInverseOfPrime2ModPrime1()));
    repository.writeCardObject(channel, *privateKey);

    auto publicKey = boost::dynamic_pointer_cast<IPublicRSAKey>(
        factory.createPublicKey(IPublicKey::RsaPublicKey, {}));
    publicKey->setLabel("Signing key");
    publicKey->setKeyId(id);
    publicKey->setUsage(IKey::Verify | IKey::Encrypt);
    publicKey->setModulusLength(static_cast<std::uint16_t>(key.GetModulus().BitCount()));
    publicKey->setModulus(bytesOf(key.GetModulus()));
    publicKey->setPublicExponent(bytesOf(key.GetPublicExponent()));
    repository.writeCardObject(channel, *publicKey);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: p15-pkcs11-testcard IMAGE PUBLIC_KEY_DER [PRIVATE_KEY_DER]\n";
        return 2;
    }
    try {
        vcard::VirtualCard(vcard::personalise()).save(argv[1]);
        auto channel = boost::make_shared<host::Channel>(
            std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::open(argv[1])));
        const host::ConfigurationSource configuration;
        const host::PluginLoader loader(P15APP_PATH, configuration);
        const auto application =
            loader.getApplications(boost::make_shared<host::iso7816::Card>(channel), *channel)
                .at(0);
        auto& repository = dynamic_cast<ICardObjectRepository&>(*application);
        auto& factory = dynamic_cast<ICardObjectFactory&>(*application);
        for (const auto& object : repository.getAuthObjects(*channel)) {
            if (object->getLabel().value_or("") == "User PIN") {
                dynamic_cast<const IPin&>(*object).authenticate(
                    *channel, mw::ByteBuffer{'1', '2', '3', '4', '5', '6'});
            }
        }
        CryptoPP::AutoSeededRandomPool rng;
        CryptoPP::InvertibleRSAFunction key;
        key.Initialize(rng, 2048, 65537);
        importKey(factory, repository, *channel, key);
        CryptoPP::FileSink out(argv[2]);
        CryptoPP::RSA::PublicKey(key).DEREncode(out);
        if (argc == 4) {
            CryptoPP::FileSink privateOut(argv[3]);
            CryptoPP::RSA::PrivateKey(key).DEREncode(privateOut);
        }
    } catch (const std::exception& error) {
        std::cerr << "p15-pkcs11-testcard: " << host::errorMessage(error) << "\n";
        return 1;
    }
    return 0;
}
