// Makes the virtual card the PKCS#11 tests run against: a personalised
// image with a 2048-bit RSA key pair ("Signing key", id 45 01) and a
// self-signed certificate for it, imported through the plugin. Beside it in
// DIR: public.der (SubjectPublicKeyInfo), private.der (PKCS#8, for tests
// that sign and decipher in software what the module verifies and
// enciphers) and certificate.der.
// Usage: p15-pkcs11-testcard IMAGE DIR
#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/ICertificate.hpp"
#include "app/object/IPin.hpp"
#include "app/object/IPrivateRSAKey.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "host/Channel.hpp"
#include "host/ErrorMessage.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/ConfigurationSource.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "tools/p15tool/Enrolment.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <cryptopp/files.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>
#include <cstdlib>
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

// A self-signed X.509 v3 certificate (serial 4660, "CN=p15kit test"), built as
// p15tool's selfsign builds it.
mw::ByteBuffer selfSigned(const CryptoPP::InvertibleRSAFunction& key) {
    const auto bigEndian = [](const CryptoPP::Integer& value) {
        p15tool::der::Bytes bytes(value.MinEncodedSize());
        value.Encode(bytes.data(), bytes.size());
        return bytes;
    };
    const CryptoPP::RSA::PrivateKey privateKey(key);
    const auto sign = [&privateKey](const p15tool::der::Bytes& toBeSigned) {
        CryptoPP::AutoSeededRandomPool rng;
        CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(privateKey);
        p15tool::der::Bytes signature(signer.MaxSignatureLength());
        signer.SignMessage(rng, toBeSigned.data(), toBeSigned.size(), signature.data());
        return signature;
    };
    const p15tool::enrolment::Validity validity{1735689600, 2051222400}; // 2025 to 2035
    const p15tool::der::Bytes certificate = p15tool::enrolment::selfSignedCertificate(
        p15tool::der::name("CN=p15kit test"),
        {bigEndian(key.GetModulus()), bigEndian(key.GetPublicExponent())}, validity, {0x12, 0x34},
        sign);
    return mw::ByteBuffer(certificate.data(), certificate.size());
}

void importCertificate(ICardObjectFactory& factory, const ICardObjectRepository& repository,
                       const card::IChannel& channel, const mw::ByteBuffer& value) {
    auto certificate = factory.createCertificate(ICertificate::X509Certificate, {});
    certificate->setLabel("Signing key");
    certificate->setCertificateId(mw::ByteBuffer{0x45, 0x01});
    certificate->setValue(value);
    repository.writeCardObject(channel, *certificate);
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
    if (argc != 3) {
        std::cerr << "usage: p15-pkcs11-testcard IMAGE DIR\n";
        return 2;
    }
    const std::string directory = argv[2];
    try {
        vcard::Personalisation card; // of the profile P15_TESTCARD_PROFILE names, else native
        if (const char* profile = std::getenv("P15_TESTCARD_PROFILE")) {
            card.profile = vcard::profileFromName(profile);
        }
        vcard::VirtualCard(vcard::personalise(card)).save(argv[1]);
        auto channel = boost::make_shared<host::Channel>(
            std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::open(argv[1])));
        const card::Transaction held(*channel);
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
        const mw::ByteBuffer certificate = selfSigned(key);
        importCertificate(factory, repository, *channel, certificate);
        CryptoPP::FileSink publicOut((directory + "/public.der").c_str());
        CryptoPP::RSA::PublicKey(key).DEREncode(publicOut);
        CryptoPP::FileSink privateOut((directory + "/private.der").c_str());
        CryptoPP::RSA::PrivateKey(key).DEREncode(privateOut);
        CryptoPP::FileSink certificateOut((directory + "/certificate.der").c_str());
        certificateOut.Put(certificate.data(), certificate.size());
    } catch (const std::exception& error) {
        std::cerr << "p15-pkcs11-testcard: " << host::errorMessage(error) << "\n";
        return 1;
    }
    return 0;
}
