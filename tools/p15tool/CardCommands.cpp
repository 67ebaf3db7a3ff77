// init, info and readers: personalising a virtual card, what a card and its
// application say about themselves, and the PC/SC readers.
#include "app/IApplication.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "card/CardException.hpp"
#include "host/Channel.hpp"
#include "host/pcsc/PcscContext.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Documents.hpp"
#include "tools/p15tool/Locations.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/PinInput.hpp"
#include "tools/p15tool/Progress.hpp"
#include "tools/p15tool/Schemes.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"
#include "tools/p15tool/Values.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <unistd.h>

namespace p15tool {

namespace {

// The algorithm tables of IApplication::getAlgorithmRows.
constexpr unsigned signatureRows = 1;
constexpr unsigned rawRsaRows = 2;

// The names of the signature and hash algorithms a card may offer.
const std::map<std::string, std::string> algorithmNames{
    {"1.2.840.113549.1.1.1", "rsaEncryption"},
    {"1.2.840.113549.1.1.2", "md2WithRSAEncryption"},
    {"1.2.840.113549.1.1.3", "md4WithRSAEncryption"},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
    {"1.2.840.113549.1.1.7", "id-RSAES-OAEP"},
    {"1.2.840.113549.1.1.10", "id-RSASSA-PSS"},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
    {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption"},
    {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption"},
    {"1.2.840.113549.1.1.14", "sha224WithRSAEncryption"},
    {"1.3.36.3.3.1.2", "rsaSignatureWithripemd160"},
    {"1.3.36.3.3.1.3", "rsaSignatureWithripemd128"},
    {"1.2.840.113549.2.2", "md2"},
    {"1.2.840.113549.2.4", "md4"},
    {"1.2.840.113549.2.5", "md5"},
    {"1.3.14.3.2.26", "sha1"},
    {"1.3.36.3.2.1", "ripemd160"},
    {"1.3.36.3.2.2", "ripemd128"},
    {"2.16.840.1.101.3.4.2.1", "sha256"},
    {"2.16.840.1.101.3.4.2.2", "sha384"},
    {"2.16.840.1.101.3.4.2.3", "sha512"},
    {"2.16.840.1.101.3.4.2.4", "sha224"},
};

// Adds "name" under `key` when the algorithm `oid` has one.
void putAlgorithmName(Json& out, const char* key, const std::string& oid) {
    const auto name = algorithmNames.find(oid);
    if (name != algorithmNames.end()) {
        out[key] = name->second;
    }
}

struct InitOptions {
    std::string label = vcard::Personalisation().label;
    bool force = false;
    std::string profile = vcard::profileName(vcard::CardProfile::Native);
    PinSource userPin{"user PIN", "pin", {}, {}};
    PinSource unblockingPin{"PUK", "puk", {}, {}};
    PinSource soPin{"SO PIN", "so-pin", {}, {}};
};

// A PIN as the personalisation takes it; the caller wipes it.
void takePin(const PinSource& source, std::string& into) {
    const mw::ByteBuffer pin = readPin(source, true);
    const bool digits =
        std::all_of(pin.begin(), pin.end(), [](unsigned char c) { return c >= '0' && c <= '9'; });
    if (!digits || pin.size() < 4 || pin.size() > vcard::layout::pinLength) {
        throw ToolError(ExitCode::usage, "the " + source.name + " must have 4 to " +
                                             std::to_string(vcard::layout::pinLength) + " digits");
    }
    into.assign(pin.begin(), pin.end());
}

// The personalisation's PINs wiped however init ends.
struct PersonalisationSecrets {
    vcard::Personalisation values;
    ~PersonalisationSecrets() {
        for (std::string* pin : {&values.userPin, &values.unblockingPin, &values.soPin}) {
            explicit_bzero(pin->data(), pin->size());
        }
    }
};

void init(const GlobalOptions& global, const InitOptions& options) {
    if (global.reader) {
        throw ToolError(ExitCode::usage,
                        "init personalises virtual card images, not cards in a reader; "
                        "leave out --reader");
    }
    const std::string path = cardImagePath(global);
    if (fileExists(path) && !options.force) {
        throw ToolError(ExitCode::failure, "the card image " + path +
                                               " exists; add --force to replace it and "
                                               "everything on it");
    }
    PersonalisationSecrets secrets;
    secrets.values.label = options.label;
    secrets.values.profile = vcard::profileFromName(options.profile);
    takePin(options.userPin, secrets.values.userPin);
    takePin(options.unblockingPin, secrets.values.unblockingPin);
    takePin(options.soPin, secrets.values.soPin);
    createParentDirectories(path);
    vcard::VirtualCard(vcard::personalise(secrets.values)).save(path);
    printResult(std::cout, Json{{"image", path}, {"label", options.label}}, global.json);
}

Json cardJson(const Session& session) {
    Json card;
    if (session.location().image.empty()) {
        card["reader"] = session.location().reader;
    } else {
        card["image"] = session.location().image;
    }
    card["atr"] = mw::toHex(session.atr());
    return card;
}

Json algorithmsJson(const app::IApplication& application, unsigned rows) {
    Json list = Json::array();
    for (const app::AlgorithmRow& row : application.getAlgorithmRows(rows)) {
        Json item;
        putAlgorithmName(item, "name", row.signatureOid);
        item["signature"] = row.signatureOid;
        if (!row.hashOid.empty()) {
            putAlgorithmName(item, "hashName", row.hashOid);
            item["hash"] = row.hashOid;
        }
        list.push_back(item);
    }
    return list;
}

// The schemes the card performs itself, each with the hashes it takes.
Json schemesJson(const app::IApplication& application) {
    Json list = Json::array();
    for (const Scheme* scheme : {&rsaPss, &rsaOaep}) {
        Json hashes = Json::array();
        for (const std::string& hash : scheme->hashes) {
            if (performs(application, *scheme, hash)) {
                hashes.push_back(hash);
            }
        }
        if (!hashes.empty()) {
            Json item;
            putAlgorithmName(item, "name", scheme->oid);
            item["algorithm"] = scheme->oid;
            item["hashes"] = hashes;
            list.push_back(item);
        }
    }
    return list;
}

} // namespace

Json cardInfoJson(const Session& session) {
    const app::IApplication& application = session.application();
    Json document;
    document["card"] = cardJson(session);
    document["application"] = Json{{"label", displayText(application.getLabel())},
                                   {"aid", mw::toHex(application.getAid())}};
    if (const auto info = session.repository().getApplicationInfo(session.channel())) {
        document["tokenInfo"] = tokenInfoJson(*info);
    }
    document["signatureAlgorithms"] = algorithmsJson(application, signatureRows);
    document["rawRsaAlgorithms"] = algorithmsJson(application, rawRsaRows);
    document["rsaSchemes"] = schemesJson(application);
    return document;
}

namespace {

void info(const GlobalOptions& global) {
    const Session session(global);
    printResult(std::cout, cardInfoJson(session), global.json);
}

// Whether the person at the terminal agrees to `question`; without a
// terminal nobody can, and the command needs --yes.
bool confirmed(const std::string& question) {
    if (::isatty(STDIN_FILENO) != 1) {
        throw ToolError(ExitCode::usage, "no terminal to confirm on; add --yes to " + question);
    }
    std::cerr << question << "? Type \"yes\" to go on: " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "yes";
}

void wipe(const GlobalOptions& global, bool yes, const PinSource& pin) {
    const Session session(global);
    const std::string where = session.cardName();
    if (!yes && !confirmed("wipe every key, certificate and data object from " + where)) {
        throw ToolError(ExitCode::failure, "nothing wiped");
    }
    verifyUserPin(session, pin);
    Progress progress("Wiping " + where);
    session.application().wipe(session.channel());
    progress.done();
    printResult(std::cout, Json{{"wiped", where}}, global.json);
}

void readers(const GlobalOptions& global) {
    std::unique_ptr<host::PcscContext> context;
    try {
        context = std::make_unique<host::PcscContext>();
    } catch (const card::CardException&) {
        throw ToolError(ExitCode::card, "cannot list readers: the PC/SC service (pcscd) is not "
                                        "running; start it, or use a virtual card with --card");
    }
    Json list = Json::array();
    for (const std::string& reader : context->listReaders()) {
        const bool present = context->waitForCard(reader, std::chrono::milliseconds(0));
        list.push_back(Json{{"reader", reader}, {"cardPresent", present}});
    }
    if (list.empty() && !global.json) {
        std::cout << "no PC/SC readers\n";
        return;
    }
    printResult(std::cout, Json{{"readers", list}}, global.json);
}

} // namespace

void addCardCommands(CLI::App& program, const GlobalOptions& options) {
    auto initOptions = std::make_shared<InitOptions>();
    CLI::App* initCommand = program.add_subcommand(
        "init", "personalise a new virtual card image with your PINs and label");
    initCommand->add_option("--label", initOptions->label, "the token label")->type_name("LABEL");
    initCommand->add_flag("--force", initOptions->force, "replace an existing image");
    initCommand
        ->add_option("--profile", initOptions->profile,
                     "how the card speaks: native, or iso as cards of other makes")
        ->check(CLI::IsMember({"native", "iso"}));
    for (PinSource* pin :
         {&initOptions->userPin, &initOptions->unblockingPin, &initOptions->soPin}) {
        addPinOptions(*initCommand, *pin);
    }
    initCommand->callback([&options, initOptions] { init(options, *initOptions); });

    program.add_subcommand("info", "the card, its PKCS#15 application and its algorithms")
        ->callback([&options] { info(options); });
    auto wipeOptions =
        std::make_shared<std::pair<bool, PinSource>>(false, PinSource{"user PIN", "pin", {}, {}});
    CLI::App* wipeCommand = program.add_subcommand(
        "wipe", "remove every key, certificate and data object from the card (asks first)");
    wipeCommand->add_flag("--yes", wipeOptions->first, "do not ask");
    addPinOptions(*wipeCommand, wipeOptions->second);
    wipeCommand->callback(
        [&options, wipeOptions] { wipe(options, wipeOptions->first, wipeOptions->second); });

    program.add_subcommand("readers", "the PC/SC readers, with a card or without")
        ->callback([&options] { readers(options); });
}

} // namespace p15tool
