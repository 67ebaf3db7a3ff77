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
#include "tools/p15tool/Progress.hpp"
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

void importKey(const GlobalOptions& global, const KeyOptions& options) {
    const RsaKeyMaterial material = readPrivateKeyFile(options.file);
    const mw::ByteBuffer id =
        options.choice.id ? idFromHex(*options.choice.id) : modulusKeyId(material.modulus);
    const Session session(global);
    const mw::ByteBuffer authId = verifyUserPin(session, options.pin);
    refuseTakenId(session, id);

    const KeyPair pair = newKeyPair(session, options.choice.label.value_or("Imported key"), id,
                                    authId, material.bits);
    pair.privateKey->setAccessFlags(IKey::Sensitive);
    pair.privateKey->setPublicExponent(material.exponent);
    pair.privateKey->setCrtComponents(material.p, material.q, material.dp, material.dq,
                                      material.pInv, material.qInv);
    pair.publicKey->setModulus(material.modulus);
    pair.publicKey->setPublicExponent(material.exponent);
    const auto& repository = session.repository();
    Progress progress("Writing the key to " + session.cardName());
    repository.writeCardObject(session.channel(), *pair.privateKey);
    try {
        repository.writeCardObject(session.channel(), *pair.publicKey);
    } catch (...) {
        // Half a key pair helps no one: the private key goes again.
        repository.deleteCardObject(session.channel(), *pair.privateKey);
        throw;
    }
    progress.done();
    const PinList pins = pinsOf(repository, session.channel());
    printResult(std::cout, Json{{"imported", keyJson(*pair.privateKey, pins)}}, global.json);
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

Json deletedKeyJson(const app::object::IKey& key, bool privateKey, const PinList& pins) {
    Json out = keyJson(key, pins);
    if (keyStaysOnCard(key, privateKey)) {
        out["onCard"] = "only the entry is removed: the key stays on the card";
    }
    return out;
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
    deleted.push_back(deletedKeyJson(*pair.privateKey, true, pins));
    session.repository().deleteCardObject(session.channel(), *pair.privateKey);
    if (pair.publicKey) {
        deleted.push_back(deletedKeyJson(*pair.publicKey, false, pins));
        session.repository().deleteCardObject(session.channel(), *pair.publicKey);
    }
    printResult(std::cout, Json{{"deleted", deleted}}, global.json);
}

} // namespace

void addKeyCommands(CLI::App& program, const GlobalOptions& global) {
    CLI::App* group = program.add_subcommand("key", "RSA keys on the card");
    group->require_subcommand(1);
    auto options = std::make_shared<KeyOptions>();

    CLI::App* importCommand = group->add_subcommand(
        "import", "put an RSA private key (PKCS#8 or PKCS#1, DER or PEM) and its public key "
                  "on the card");
    importCommand->add_option("FILE", options->file, "the private key file")->required();
    importCommand->add_option("--label", options->choice.label, "the key's label")->type_name("L");
    importCommand
        ->add_option("--id", options->choice.id,
                     "the key's identifier (default: SHA-1 of "
                     "the modulus)")
        ->type_name("HEX");
    addPinOptions(*importCommand, options->pin);
    importCommand->callback([&global, options] { importKey(global, *options); });

    CLI::App* exportCommand =
        group->add_subcommand("export", "the public key, as SubjectPublicKeyInfo (PEM or DER) "
                                        "or an OpenSSH line");
    addKeyChoice(*exportCommand, options->choice);
    CLI::Option* format =
        exportCommand->add_option("--format", options->format, "pem (default), der or ssh")
            ->check(CLI::IsMember({"pem", "der", "ssh"}));
    exportCommand
        ->add_flag_callback(
            "--ssh", [options] { options->format = "ssh"; }, "short for --format ssh")
        ->excludes(format);
    exportCommand->add_option("--out", options->out, "write to FILE instead of stdout")
        ->type_name("FILE");
    exportCommand->callback([&global, options] { exportKey(global, *options); });

    CLI::App* deleteCommand =
        group->add_subcommand("delete", "remove a key pair (private and public key)");
    addKeyChoice(*deleteCommand, options->choice);
    addPinOptions(*deleteCommand, options->pin);
    deleteCommand->callback([&global, options] { deleteKey(global, *options); });
}

} // namespace p15tool
