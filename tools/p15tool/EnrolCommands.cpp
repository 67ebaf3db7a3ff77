// keygen, req and selfsign: a key pair made on the card, and the documents
// that enrol it, signed by the card.
#include "app/IApplication.hpp"
#include "app/crypto/IKeyPairGenerator.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Enrolment.hpp"
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/Keys.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Progress.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>
#include <cryptopp/osrng.h>

#include <ctime>
#include <iostream>
#include <stdexcept>

namespace p15tool {

namespace {

using app::object::IKey;

const char* const rsaEncryption = "1.2.840.113549.1.1.1";
const char* const sha256WithRsaEncryption = "1.2.840.113549.1.1.11";
constexpr std::size_t serialNumberSize = 16;
constexpr long secondsPerDay = 86400;

struct EnrolOptions {
    KeyChoice choice;
    PinSource pin{"user PIN", "pin", {}, {}};
    unsigned bits = 2048;
    std::string subject;
    unsigned days = 365;
    std::string format = "pem";
    std::string out = "-";
};

void keygen(const GlobalOptions& global, const EnrolOptions& options) {
    const Session session(global);
    const mw::ByteBuffer authId = verifyUserPin(session, options.pin);
    // Without --id the key is named by its modulus, known only once the card
    // made it: a random identifier stands in until then.
    CryptoPP::AutoSeededRandomPool rng;
    mw::ByteBuffer id(20);
    rng.GenerateBlock(id.data(), id.size());
    if (options.choice.id) {
        id = idFromHex(*options.choice.id);
        refuseTakenId(session, id);
    }
    const KeyPair pair =
        newKeyPair(session, options.choice.label.value_or("Key"), id, authId, options.bits);
    pair.privateKey->setAccessFlags(IKey::Sensitive | IKey::AlwaysSensitive |
                                    IKey::NeverExtractable | IKey::LocalKey);
    Progress progress("Generating a " + std::to_string(options.bits) + "-bit RSA key pair on " +
                      session.cardName());
    session.application()
        .getKeyPairGenerator(rsaEncryption)
        ->generate(session.channel(), pair.privateKey, pair.publicKey);
    if (!options.choice.id) {
        const mw::ByteBuffer named = modulusKeyId(pair.publicKey->getModulus());
        for (IKey* key : {static_cast<IKey*>(pair.privateKey.get()),
                          static_cast<IKey*>(pair.publicKey.get())}) {
            key->setKeyId(named);
            session.repository().writeCardObject(session.channel(), *key);
        }
    }
    progress.done();
    const PinList pins = pinsOf(session.repository(), session.channel());
    printResult(std::cout, Json{{"generated", keyJson(*pair.privateKey, pins)}}, global.json);
}

der::Bytes subjectName(const std::string& subject) {
    try {
        return der::name(subject);
    } catch (const std::invalid_argument& error) {
        throw ToolError(ExitCode::usage, std::string("--subject: ") + error.what());
    }
}

// Signs with the chosen key on the card: the document, its key and its signer.
template <class Build>
void enrol(const GlobalOptions& global, const EnrolOptions& options, const std::string& label,
           Build build) {
    const der::Bytes subject = subjectName(options.subject);
    const Session session(global);
    const KeyPair pair = chooseKeyPair(session, options.choice);
    const enrolment::RsaPublicKey publicKey = publicKeyOf(readPublicKey(session, pair));
    verifyUserPin(session, options.pin);
    const enrolment::Signer signer = [&](const der::Bytes& toBeSigned) {
        const mw::ByteBuffer signature =
            signOnCard(session, *pair.privateKey, sha256WithRsaEncryption,
                       mw::ByteBuffer(toBeSigned.data(), toBeSigned.size()));
        return der::Bytes(signature.begin(), signature.end());
    };
    const der::Bytes document = build(subject, publicKey, signer);
    const mw::ByteBuffer bytes(document.data(), document.size());
    if (options.format == "der") {
        writeOutput(options.out, bytes, true);
        return;
    }
    const std::string text = pem(bytes, label);
    writeOutput(options.out,
                mw::ByteBuffer(reinterpret_cast<const unsigned char*>(text.data()), text.size()),
                false);
}

void request(const GlobalOptions& global, const EnrolOptions& options) {
    enrol(global, options, "CERTIFICATE REQUEST", enrolment::certificationRequest);
}

void selfSign(const GlobalOptions& global, const EnrolOptions& options) {
    const std::time_t now = std::time(nullptr);
    const enrolment::Validity validity{now, now + secondsPerDay * options.days};
    der::Bytes serial(serialNumberSize);
    CryptoPP::AutoSeededRandomPool().GenerateBlock(serial.data(), serial.size());
    serial[0] &= 0x7F; // positive, and no longer than 16 bytes once encoded
    enrol(global, options, "CERTIFICATE",
          [&](const der::Bytes& subject, const enrolment::RsaPublicKey& key,
              const enrolment::Signer& signer) {
              return enrolment::selfSignedCertificate(subject, key, validity, serial, signer);
          });
}

CLI::App* addEnrolCommand(CLI::App& program, const char* name, const char* description,
                          EnrolOptions& options) {
    CLI::App* command = program.add_subcommand(name, description);
    addKeyChoice(*command, options.choice);
    command->add_option("--subject", options.subject, "the subject, e.g. \"CN=Alice,O=Example\"")
        ->required();
    command->add_option("--format", options.format, "pem (default) or der")
        ->check(CLI::IsMember({"pem", "der"}));
    command->add_option("--out", options.out, "write to FILE instead of stdout")->type_name("FILE");
    addPinOptions(*command, options.pin);
    return command;
}

} // namespace

void addEnrolCommands(CLI::App& program, const GlobalOptions& global) {
    auto options = std::make_shared<EnrolOptions>();

    CLI::App* keygenCommand =
        program.add_subcommand("keygen", "generate an RSA key pair on the card");
    keygenCommand->add_option("--bits", options->bits, "1024, 1536 or 2048 (default)")
        ->check(CLI::IsMember({1024u, 1536u, 2048u}));
    keygenCommand->add_option("--label", options->choice.label, "the key's label (default Key)")
        ->type_name("L");
    keygenCommand
        ->add_option("--id", options->choice.id,
                     "the key's identifier (default: SHA-1 of the modulus)")
        ->type_name("HEX");
    addPinOptions(*keygenCommand, options->pin);
    keygenCommand->callback([&global, options] { keygen(global, *options); });

    addEnrolCommand(program, "req", "a PKCS#10 certificate request signed by a key on the card",
                    *options)
        ->callback([&global, options] { request(global, *options); });
    addEnrolCommand(program, "selfsign", "a self-signed X.509 certificate for a key on the card",
                    *options)
        ->add_option("--days", options->days, "how long it is valid (default 365)")
        ->check(CLI::Range(1u, 36500u));
    program.get_subcommand("selfsign")->callback([&global, options] {
        selfSign(global, *options);
    });
}

} // namespace p15tool
