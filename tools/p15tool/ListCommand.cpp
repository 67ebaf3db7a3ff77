// list: the objects of the card's application as the plugin offers them,
// PINs with their tries left, access rules in words.
#include "app/ApplicationException.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IListingNotes.hpp"
#include "app/object/IPublicRSAKey.hpp"
#include "host/Channel.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Documents.hpp"
#include "tools/p15tool/Keys.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Pins.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"
#include "tools/p15tool/Values.hpp"

#include <CLI/CLI.hpp>
#include <boost/exception/get_error_info.hpp>

#include <iostream>

namespace p15tool {

namespace {

using Repository = app::object::ICardObjectRepository;

// The objects of one kind under `key`; a kind the plugin cannot list yet is
// a note in `notes` rather than a failure of the whole listing.
template <class Fetch, class Describe>
void putObjects(Json& document, Json& notes, const char* key, Fetch fetch, Describe describe) {
    try {
        Json list = Json::array();
        for (const auto& object : fetch()) {
            list.push_back(describe(*object));
        }
        document[key] = list;
    } catch (const app::OperationNotSupportedException& error) {
        const char* const* text = boost::get_error_info<app::ErrorText>(error);
        notes.push_back(std::string(key) +
                        " not listed: " + (text ? *text : "the plugin cannot list them"));
    }
}

// Reads the value of `object` from the card; a value the card does not give
// is a note, and the object is listed all the same.
bool readValue(const Session& session, app::object::ICardObject& object, const std::string& name,
               Json& notes) {
    try {
        session.repository().readCardObject(session.channel(), object);
        return true;
    } catch (const std::exception& error) {
        notes.push_back("the value of " + name +
                        " cannot be read: " + describeFailure(error).message);
        return false;
    }
}

// A public key with its modulus and exponent as the card gives them.
Json publicKeyWithValue(const Session& session, app::object::IPublicKey& key, const PinList& pins,
                        Json& notes) {
    Json out = keyJson(key, pins);
    auto* rsa = dynamic_cast<app::object::IPublicRSAKey*>(&key);
    if (rsa && readValue(session, key, "public key " + keyName(key), notes)) {
        out["modulus"] = mw::toHex(rsa->getModulus());
        out["publicExponent"] = mw::toHex(rsa->getPublicExponent());
    }
    return out;
}

// A certificate with its names, validity and fingerprint from its value.
Json certificateWithValue(const Session& session, app::object::ICertificate& certificate,
                          const PinList& pins, bool withDer, Json& notes) {
    const auto& label = certificate.getLabel();
    const std::string name = "certificate " + (label ? "\"" + displayText(*label) + "\""
                                                     : mw::toHex(certificate.getCertificateId()));
    readValue(session, certificate, name, notes);
    return certificateJson(certificate, pins, withDer);
}

// One line per entry the plugin's lists left out: "EF(PrKDF) entry at byte
// 95: kept, not listed: EC private key".
void putListingNotes(const Repository& repository, const card::IChannel& channel, Json& notes) {
    const auto* listing = dynamic_cast<const app::object::IListingNotes*>(&repository);
    if (!listing) {
        return;
    }
    for (const auto& note : listing->getListingNotes(channel)) {
        notes.push_back(note.file + " entry at byte " + std::to_string(note.offset) + ": " +
                        note.reason);
    }
}

void list(const GlobalOptions& global) {
    const Session session(global);
    printResult(std::cout, objectsJson(session, false, global.json), global.json);
}

void dump(const GlobalOptions& global) {
    const Session session(global);
    Json document = cardInfoJson(session);
    document["objects"] = objectsJson(session, true, global.json);
    printResult(std::cout, document, global.json);
}

} // namespace

Json objectsJson(const Session& session, bool publicValues, bool withDer) {
    const Repository& repository = session.repository();
    const card::IChannel& channel = session.channel();
    const PinList pins = pinsOf(repository, channel);

    Json document;
    Json pinList = Json::array();
    for (const auto& pin : pins) {
        pinList.push_back(pinJson(*pin, channel, pins, true));
    }
    document["pins"] = pinList;
    Json notes = Json::array();
    const auto key = [&pins](const app::object::IKey& object) { return keyJson(object, pins); };
    const auto publicKey = [&](app::object::IPublicKey& object) {
        return publicValues ? publicKeyWithValue(session, object, pins, notes)
                            : keyJson(object, pins);
    };
    putObjects(
        document, notes, "privateKeys", [&] { return repository.getPrivateKeys(channel); }, key);
    putObjects(
        document, notes, "publicKeys", [&] { return repository.getPublicKeys(channel); },
        publicKey);
    putObjects(
        document, notes, "certificates", [&] { return repository.getCertificates(channel); },
        [&](app::object::ICertificate& object) {
            return certificateWithValue(session, object, pins, withDer, notes);
        });
    putObjects(
        document, notes, "dataObjects", [&] { return repository.getDataObjects(channel); },
        [&pins](const app::object::IDataObject& object) { return dataObjectJson(object, pins); });
    putListingNotes(repository, channel, notes);
    if (!notes.empty()) {
        document["notes"] = notes;
    }
    return document;
}

void addListCommand(CLI::App& program, const GlobalOptions& global) {
    program
        .add_subcommand("dump", "everything on the card as a tree: the card, its "
                                "application, algorithms and objects with their values")
        ->callback([&global] { dump(global); });
    program
        .add_subcommand("list", "the PINs (with their tries left), keys, certificates and "
                                "data objects on the card")
        ->callback([&global] { list(global); });
}

} // namespace p15tool
