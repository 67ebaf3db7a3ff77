// key import, export and delete: RSA key pairs on the card, through the
// plugin's object factory and repository.
#include "app/IApplication.hpp"
#include "app/SecurityConditions.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Enrolment.hpp"
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/Keys.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/Text.hpp"

#include <CLI/CLI.hpp>
#include <boost/make_shared.hpp>
#include <cryptopp/sha.h>

#include <iostream>

namespace p15tool {

namespace {

using app::object::IKey;
using app::object::IPrivateRSAKey;
using app::object::IPublicRSAKey;

struct KeyOptions {
    KeyChoice choice;
    PinSource pin{"user PIN", "pin", {}, {}};
    std::string file;
    std::string format = "pem";
    std::string out = "-";
};

app::object::ICardObjectFactory& factoryOf(const Session& session) {
    auto* factory = dynamic_cast<app::object::ICardObjectFactory*>(&session.application());
    if (!factory) {
        throw ToolError(ExitCode::card, "the plugin makes no new objects for the card's "
                                        "application; use a plugin that writes keys");
    }
    return *factory;
}

// The identifier of a new key: the one asked for, or the SHA-1 of its
// modulus, which ties a key, its public key and its certificate together
// the way other software expects.
mw::ByteBuffer newKeyId(const KeyChoice& choice, const mw::ByteBuffer& modulus) {
    if (choice.id) {
        try {
            return mw::fromHex(*choice.id);
        } catch (const std::exception&) {
            throw ToolError(ExitCode::usage, "--id takes hex digits, not \"" + *choice.id + "\"");
        }
    }
    mw::ByteBuffer digest(CryptoPP::SHA1::DIGESTSIZE);
    CryptoPP::SHA1().CalculateDigest(digest.data(), modulus.data(), modulus.size());
    return digest;
}

// Use of the private key and changes to either key need the user PIN.
app::AccessControlRules userPinRules(const mw::ByteBuffer& authId) {
    return {app::AccessControlRule(app::AccessControlRule::Update | app::AccessControlRule::Execute,
                                   boost::make_shared<app::AuthIdSecurityCondition>(
                                       std::vector<std::uint8_t>(authId.begin(), authId.end())))};
}

void refuseTakenId(const Session& session, const mw::ByteBuffer& id) {
    for (const auto& key : session.repository().getPrivateKeys(session.channel())) {
        if (key->getKeyId() == id) {
            throw ToolError(ExitCode::failure, "the card holds a key with id " + mw::toHex(id) +
                                                   " already (" + keyName(*key) +
                                                   "); choose another with --id");
        }
    }
}

boost::shared_ptr<IPublicRSAKey> newPublicKey(const Session& session, const IPrivateRSAKey& key,
                                              const RsaKeyMaterial& material) {
    auto publicKey = boost::dynamic_pointer_cast<IPublicRSAKey>(
        factoryOf(session).createPublicKey(app::object::IPublicKey::RsaPublicKey, {}));
    if (key.getLabel()) {
        publicKey->setLabel(*key.getLabel());
    }
    publicKey->setKeyId(key.getKeyId());
    publicKey->setUsage(IKey::Verify | IKey::Encrypt);
    publicKey->setModulusLength(static_cast<std::uint16_t>(material.bits));
    publicKey->setModulus(material.modulus);
    publicKey->setPublicExponent(material.exponent);
    return publicKey;
}

void importKey(const GlobalOptions& global, const KeyOptions& options) {
    const RsaKeyMaterial material = readPrivateKeyFile(options.file);
    const Session session(global);
    const mw::ByteBuffer authId = verifyUserPin(session, options.pin);
    const mw::ByteBuffer id = newKeyId(options.choice, material.modulus);
    refuseTakenId(session, id);

    auto key = boost::dynamic_pointer_cast<IPrivateRSAKey>(factoryOf(session).createPrivateKey(
        app::object::IPrivateKey::RsaPrivateKey, userPinRules(authId)));
    key->setLabel(options.choice.label.value_or("Imported key"));
    key->setKeyId(id);
    key->setUsage(IKey::Sign | IKey::Decrypt);
    key->setFlags(0x03); // private, modifiable
    key->setAccessFlags(IKey::Sensitive);
    key->setPublicExponent(material.exponent);
    key->setCrtComponents(material.p, material.q, material.dp, material.dq, material.pInv,
                          material.qInv);
    const auto& repository = session.repository();
    repository.writeCardObject(session.channel(), *key);
    const auto publicKey = newPublicKey(session, *key, material);
    try {
        repository.writeCardObject(session.channel(), *publicKey);
    } catch (...) {
        // Half a key pair helps no one: the private key goes again.
        repository.deleteCardObject(session.channel(), *key);
        throw;
    }
    const PinList pins = pinsOf(repository, session.channel());
    printResult(std::cout, Json{{"imported", keyJson(*key, pins)}}, global.json);
}

void exportKey(const GlobalOptions& global, const KeyOptions& options) {
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    const IPublicRSAKey& key = readPublicKey(session, pair);
    const der::Bytes info = enrolment::subjectPublicKeyInfo(publicKeyOf(key));
    const mw::ByteBuffer spki(info.data(), info.size());
    if (options.format == "der") {
        writeOutput(options.out, spki, true);
        return;
    }
    const std::string text =
        options.format == "ssh"
            ? openSshLine(key.getModulus(), key.getPublicExponent(),
                          key.getLabel() ? displayText(*key.getLabel()) : std::string())
            : pem(spki, "PUBLIC KEY");
    writeOutput(options.out,
                mw::ByteBuffer(reinterpret_cast<const unsigned char*>(text.data()), text.size()),
                false);
}

void deleteKey(const GlobalOptions& global, const KeyOptions& options) {
    if (!options.choice.given()) {
        throw ToolError(ExitCode::usage, "name the key to delete with --label or --id "
                                         "(see p15tool list)");
    }
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    verifyUserPin(session, options.pin);
    const PinList pins = pinsOf(session.repository(), session.channel());
    Json deleted = Json::array();
    deleted.push_back(keyJson(*pair.privateKey, pins));
    session.repository().deleteCardObject(session.channel(), *pair.privateKey);
    if (pair.publicKey) {
        deleted.push_back(keyJson(*pair.publicKey, pins));
        session.repository().deleteCardObject(session.channel(), *pair.publicKey);
    }
    printResult(std::cout, Json{{"deleted", deleted}}, global.json);
}

} // namespace

void addKeyCommands(CLI::App& program, const GlobalOptions& global) {
    CLI::App* group = program.add_subcommand("key", "RSA keys on the card");
    group->require_subcommand(1);
    auto options = std::make_shared<KeyOptions>();

    CLI::App* import = group->add_subcommand(
        "import", "put an RSA private key (PKCS#8 or PKCS#1, DER or PEM) and its public key "
                  "on the card");
    import->add_option("FILE", options->file, "the private key file")->required();
    import->add_option("--label", options->choice.label, "the key's label")->type_name("L");
    import
        ->add_option("--id", options->choice.id,
                     "the key's identifier (default: SHA-1 of "
                     "the modulus)")
        ->type_name("HEX");
    addPinOptions(*import, options->pin);
    import->callback([&global, options] { importKey(global, *options);
});

CLI::App* exportCommand =
    group->add_subcommand("export", "the public key, as SubjectPublicKeyInfo (PEM or DER) "
                                    "or an OpenSSH line");
addKeyChoice(*exportCommand, options->choice);
exportCommand->add_option("--format", options->format, "pem (default), der or ssh")
    ->check(CLI::IsMember({"pem", "der", "ssh"}));
exportCommand->add_option("--out", options->out, "write to FILE instead of stdout")
    ->type_name("FILE");
exportCommand->callback([&global, options] { exportKey(global, *options); });

CLI::App* deleteCommand =
    group->add_subcommand("delete", "remove a key pair (private and public key)");
addKeyChoice(*deleteCommand, options->choice);
addPinOptions(*deleteCommand, options->pin);
deleteCommand->callback([&global, options] { deleteKey(global, *options); });
} // namespace p15tool

} // namespace p15tool
