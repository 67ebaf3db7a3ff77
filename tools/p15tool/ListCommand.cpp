// list: the objects of the card's application as the plugin offers them,
// PINs with their tries left, access rules in words.
#include "app/ApplicationException.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/Pins.hpp"
#include "tools/p15tool/Session.hpp"

#include <CLI/CLI.hpp>
#include <boost/exception/get_error_info.hpp>

#include <iostream>

namespace p15tool {

namespace {

using Repository = app::object::ICardObjectRepository;

// The objects of one kind under `key`; a kind the plugin cannot list yet is
// a note in `notes` rather than a failure of the whole listing.
template <class Fetch>
void putObjects(Json& document, Json& notes, const char* key, Fetch fetch, const PinList& pins) {
    try {
        Json list = Json::array();
        for (const auto& object : fetch()) {
            list.push_back(cardObjectJson(*object, pins));
        }
        document[key] = list;
    } catch (const app::OperationNotSupportedException& error) {
        const char* const* text = boost::get_error_info<app::ErrorText>(error);
        notes.push_back(std::string(key) +
                        " not listed: " + (text ? *text : "the plugin cannot list them"));
    }
}

void list(const GlobalOptions& global) {
    const Session session(global);
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
    putObjects(
        document, notes, "privateKeys", [&] { return repository.getPrivateKeys(channel); }, pins);
    putObjects(
        document, notes, "publicKeys", [&] { return repository.getPublicKeys(channel); }, pins);
    putObjects(
        document, notes, "certificates", [&] { return repository.getCertificates(channel); }, pins);
    putObjects(
        document, notes, "dataObjects", [&] { return repository.getDataObjects(channel); }, pins);
    if (!notes.empty()) {
        document["notes"] = notes;
    }
    printResult(std::cout, document, global.json);
}

} // namespace

void addListCommand(CLI::App& program, const GlobalOptions& global) {
    program
        .add_subcommand("list", "the PINs (with their tries left), keys, certificates and "
                                "data objects on the card")
        ->callback([&global] { list(global); });
}

} // namespace p15tool
