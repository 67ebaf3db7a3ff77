// cert write|read|delete and data write|read|delete: objects whose value
// lives in a file of its own on the card.
#include "app/ApplicationException.hpp"
#include "app/IApplication.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IX509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "host/Channel.hpp"
#include "tools/p15tool/Choice.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/KeyFile.hpp"
#include "tools/p15tool/Keys.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Progress.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/Values.hpp"

#include <CLI/CLI.hpp>
#include <boost/pointer_cast.hpp>

#include <iostream>

namespace p15tool {

namespace {

using app::object::ICertificate;
using app::object::IDataObject;

// Writes an object with its value file; a large value over a reader takes
// a while, so a terminal is told.
void writeWithValue(const Session& session, const app::object::ICardObject& object,
                    std::size_t valueSize) {
    Progress progress("Writing " + std::to_string(valueSize) + " bytes to " + session.cardName());
    session.repository().writeCardObject(session.channel(), object);
    progress.done();
}

// A value file holds at most this much.
constexpr std::size_t maxValueSize = 65535;
constexpr std::uint8_t modifiableFlag = 0x01;
constexpr std::uint8_t privateFlag = 0x02;

struct ValueOptions {
    ObjectChoice choice;
    PinSource pin{"user PIN", "pin", {}, {}};
    std::string file;
    std::string format = "pem";
    std::string out = "-";
    std::optional<std::string> applicationName;
    std::optional<std::string> applicationOid;
    bool privateObject = false;
};

std::vector<boost::shared_ptr<ICertificate>> certificates(const Session& session) {
    return session.repository().getCertificates(session.channel());
}

// The label of the private key with `id`, the natural name of its
// certificate.
std::optional<std::string> keyLabel(const Session& session, const mw::ByteBuffer& id) {
    for (const auto& key : session.repository().getPrivateKeys(session.channel())) {
        if (key->getKeyId() == id && key->getLabel()) {
            return displayText(*key->getLabel());
        }
    }
    return std::nullopt;
}

void writeCertificate(const GlobalOptions& global, const ValueOptions& options) {
    const mw::ByteBuffer value =
        certificateDer(readInput(options.file, maxValueSize * 2), options.file);
    const Session session(global);
    const mw::ByteBuffer id = options.choice.id
                                  ? idFromHex(*options.choice.id)
                                  : modulusKeyId(certificateModulus(value, options.file));
    // Anyone may read a certificate; only the user replaces or removes it.
    const mw::ByteBuffer authId = verifyUserPin(session, options.pin);
    auto certificate = factoryOf(session).createCertificate(
        ICertificate::X509Certificate, pinRules(authId, app::AccessControlRule::Update));
    certificate->setLabel(
        options.choice.label.value_or(keyLabel(session, id).value_or("Certificate")));
    certificate->setFlags(modifiableFlag);
    certificate->setCertificateId(id);
    certificate->setValue(value);
    writeWithValue(session, *certificate, value.size());
    printResult(std::cout, Json{{"written", certificateJson(*certificate, {}, global.json)}},
                global.json);
}

void readCertificate(const GlobalOptions& global, const ValueOptions& options) {
    const Session session(global);
    const auto certificate =
        chooseObject(certificates(session), options.choice,
                     std::mem_fn(&ICertificate::getCertificateId), "certificate");
    session.repository().readCardObject(session.channel(), *certificate);
    if (options.format == "der") {
        writeOutput(options.out, certificate->getValue(), true);
        return;
    }
    const std::string text = pem(certificate->getValue(), "CERTIFICATE");
    writeOutput(options.out,
                mw::ByteBuffer(reinterpret_cast<const unsigned char*>(text.data()), text.size()),
                false);
}

void deleteCertificate(const GlobalOptions& global, const ValueOptions& options) {
    if (!options.choice.given()) {
        throw ToolError(ExitCode::usage,
                        "name the certificate to delete with --label or --id (see p15tool list)");
    }
    const Session session(global);
    const auto certificate =
        chooseObject(certificates(session), options.choice,
                     std::mem_fn(&ICertificate::getCertificateId), "certificate");
    verifyUserPin(session, options.pin);
    const Json deleted = certificateJson(*certificate, {}, global.json);
    session.repository().deleteCardObject(session.channel(), *certificate);
    printResult(std::cout, Json{{"deleted", deleted}}, global.json);
}

// Data objects have no identifier: they are chosen by label.
mw::ByteBuffer noId(const IDataObject&) {
    return {};
}

boost::shared_ptr<IDataObject> chooseDataObject(const Session& session,
                                                const ValueOptions& options) {
    if (!options.choice.label) {
        throw ToolError(ExitCode::usage, "name the data object with --label (see p15tool list)");
    }
    return chooseObject(session.repository().getDataObjects(session.channel()), options.choice,
                        noId, "data object");
}

// The content octets of the dotted --oid, refused before the card is opened.
std::optional<mw::ByteBuffer> applicationOid(const ValueOptions& options) {
    if (!options.applicationOid) {
        return std::nullopt;
    }
    try {
        const auto content = app::pkcs15::oss::oidFromText(*options.applicationOid);
        return mw::ByteBuffer(content.data(), content.size());
    } catch (const app::InvalidDataException&) {
        throw ToolError(ExitCode::usage, "--oid \"" + *options.applicationOid +
                                             "\" is not an object identifier; give its arcs "
                                             "in dotted form, e.g. 1.3.6.1.4.1.311");
    }
}

void writeData(const GlobalOptions& global, const ValueOptions& options) {
    if (!options.choice.label) {
        throw ToolError(ExitCode::usage, "give the data object a --label");
    }
    const std::optional<mw::ByteBuffer> oid = applicationOid(options);
    const mw::ByteBuffer value = readInput(options.file, maxValueSize);
    const Session session(global);
    const mw::ByteBuffer authId = verifyUserPin(session, options.pin);
    for (const auto& object : session.repository().getDataObjects(session.channel())) {
        if (object->getLabel() && displayText(*object->getLabel()) == *options.choice.label) {
            throw ToolError(ExitCode::failure, "the card holds a data object labelled \"" +
                                                   *options.choice.label +
                                                   "\" already; delete it first, or choose "
                                                   "another label");
        }
    }
    const std::uint16_t guarded =
        app::AccessControlRule::Update | (options.privateObject ? app::AccessControlRule::Read : 0);
    auto object = factoryOf(session).createDataObject(IDataObject::OpaqueDataObject,
                                                      pinRules(authId, guarded));
    object->setLabel(*options.choice.label);
    object->setFlags(modifiableFlag | (options.privateObject ? privateFlag : 0));
    if (options.applicationName) {
        object->setApplicationName(*options.applicationName);
    }
    if (oid) {
        object->setApplicationOid(*oid);
    }
    object->setValue(value);
    writeWithValue(session, *object, value.size());
    Json written = dataObjectJson(*object, {});
    written["size"] = value.size();
    printResult(std::cout, Json{{"written", written}}, global.json);
}

void readData(const GlobalOptions& global, const ValueOptions& options) {
    const Session session(global);
    const auto object = chooseDataObject(session, options);
    const bool secret = object->getFlags().value_or(0) & privateFlag;
    if (secret) {
        verifyUserPin(session, options.pin);
    }
    session.repository().readCardObject(session.channel(), *object);
    writeOutput(options.out, object->getValue(), true,
                secret ? Exposure::secret : Exposure::shared);
}

void deleteData(const GlobalOptions& global, const ValueOptions& options) {
    const Session session(global);
    const auto object = chooseDataObject(session, options);
    verifyUserPin(session, options.pin);
    const Json deleted = dataObjectJson(*object, {});
    session.repository().deleteCardObject(session.channel(), *object);
    printResult(std::cout, Json{{"deleted", deleted}}, global.json);
}

} // namespace

void addValueCommands(CLI::App& program, const GlobalOptions& global) {
    auto options = std::make_shared<ValueOptions>();
    const auto pinOptions = [options](CLI::App* command) {
        addPinOptions(*command, options->pin);
        return command;
    };

    CLI::App* cert = program.add_subcommand("cert", "X.509 certificates on the card");
    cert->require_subcommand(1);
    CLI::App* write = pinOptions(cert->add_subcommand(
        "write", "store a certificate (DER or PEM) with the key it belongs to"));
    write->add_option("FILE", options->file, "the certificate")->required();
    write->add_option("--label", options->choice.label, "its label (default: its key's)")
        ->type_name("L");
    write
        ->add_option("--id", options->choice.id,
                     "its identifier (default: its key's, the SHA-1 "
                     "of the modulus)")
        ->type_name("HEX");
    write->callback([&global, options] { writeCertificate(global, *options); });
    CLI::App* read = cert->add_subcommand("read", "a certificate from the card, PEM or DER");
    addObjectChoice(*read, options->choice, "certificate");
    read->add_option("--format", options->format, "pem (default) or der")
        ->check(CLI::IsMember({"pem", "der"}));
    read->add_option("--out", options->out, "write to FILE instead of stdout")->type_name("FILE");
    read->callback([&global, options] { readCertificate(global, *options); });
    CLI::App* remove = pinOptions(cert->add_subcommand("delete", "remove a certificate"));
    addObjectChoice(*remove, options->choice, "certificate");
    remove->callback([&global, options] { deleteCertificate(global, *options); });

    CLI::App* data = program.add_subcommand("data", "data objects on the card, by label");
    data->require_subcommand(1);
    CLI::App* dataWrite =
        pinOptions(data->add_subcommand("write", "store a file as a new data object"));
    dataWrite->add_option("FILE", options->file, "the data (- for stdin)")->required();
    dataWrite->add_option("--label", options->choice.label, "its label")->type_name("L");
    dataWrite->add_option("--app", options->applicationName, "the application it belongs to")
        ->type_name("NAME");
    dataWrite
        ->add_option("--oid", options->applicationOid,
                     "the application's object identifier, dotted (1.2.3.4)")
        ->type_name("OID");
    dataWrite->add_flag("--private", options->privateObject,
                        "readable only once the user PIN is verified");
    dataWrite->callback([&global, options] { writeData(global, *options); });
    CLI::App* dataRead = pinOptions(
        data->add_subcommand("read", "a data object's value (a private one: PIN options)"));
    dataRead->add_option("--label", options->choice.label, "its label")->type_name("L");
    dataRead->add_option("--out", options->out, "write to FILE instead of stdout")
        ->type_name("FILE");
    dataRead->callback([&global, options] { readData(global, *options); });
    CLI::App* dataDelete = pinOptions(data->add_subcommand("delete", "remove a data object"));
    dataDelete->add_option("--label", options->choice.label, "its label")->type_name("L");
    dataDelete->callback([&global, options] { deleteData(global, *options); });
}

} // namespace p15tool
