// pin status, verify, logout, change and unblock: the card's PINs, reached
// through the plugin's object repository as any host reaches them.
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Login.hpp"
#include "tools/p15tool/Output.hpp"
#include "tools/p15tool/PinInput.hpp"
#include "tools/p15tool/Pins.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>

#include <initializer_list>
#include <iostream>
#include <memory>
#include <optional>

namespace p15tool {

namespace {

using app::object::IPin;

struct PinOptions {
    PinChoice choice;
    PinSource pin{"PIN", "pin", {}, {}};
    PinSource newPin{"new PIN", "new-pin", {}, {}};
    PinSource unblockingPin{"PUK", "puk", {}, {}};
    bool unblockWithNewPin = false; // pin unblock --new-pin
};

// The card's PINs and the one the command means.
struct ChosenPin {
    explicit ChosenPin(const Session& session, const PinChoice& choice)
        : pins(pinsOf(session.repository(), session.channel()))
        , pin(choosePin(pins, choice)) {}
    PinList pins;
    const IPin& pin;
};

// `stateIfUntold`: what the command made of the PIN, shown when the card does not tell.
void printPin(const GlobalOptions& global, const Session& session, const ChosenPin& chosen,
              std::optional<std::uint16_t> stateIfUntold = std::nullopt) {
    const Json pin = pinJson(chosen.pin, session.channel(), chosen.pins, false, stateIfUntold);
    printResult(std::cout, pin, global.json);
}

void status(const GlobalOptions& global, const PinChoice& choice) {
    const Session session(global);
    const PinList pins = pinsOf(session.repository(), session.channel());
    Json list = Json::array();
    const bool one = choice.label || choice.reference;
    const IPin* chosen = one ? &choosePin(pins, choice) : nullptr;
    for (const auto& pin : pins) {
        if (!chosen || pin.get() == chosen) {
            list.push_back(pinJson(*pin, session.channel(), pins, false));
        }
    }
    printResult(std::cout, Json{{"pins", list}}, global.json);
}

void verify(const GlobalOptions& global, const PinOptions& options) {
    const Session session(global);
    const ChosenPin chosen(session, options.choice);
    const mw::ByteBuffer value = readPinOf(session, chosen.pin, options.pin, false);
    presentPin(session, refusedPin(chosen.pin),
               [&] { chosen.pin.authenticate(session.channel(), value); });
    printPin(global, session, chosen, card::service::PinInfo::Verified);
}

void logout(const GlobalOptions& global, const PinOptions& options) {
    const Session session(global);
    const ChosenPin chosen(session, options.choice);
    chosen.pin.deauthenticate(session.channel());
    printPin(global, session, chosen, card::service::PinInfo::NotVerified);
}

void change(const GlobalOptions& global, const PinOptions& options) {
    const Session session(global);
    const ChosenPin chosen(session, options.choice);
    const mw::ByteBuffer current = readPinOf(session, chosen.pin, options.pin, false);
    const mw::ByteBuffer replacement = readPinOf(session, chosen.pin, options.newPin, true);
    presentPin(session, refusedPin(chosen.pin),
               [&] { chosen.pin.change(session.channel(), current, replacement); });
    printPin(global, session, chosen);
}

bool wantsNewPin(const PinOptions& options) {
    return options.unblockWithNewPin || !options.newPin.environmentVariable.empty() ||
           !options.newPin.file.empty();
}

void unblock(const GlobalOptions& global, const PinOptions& options) {
    const Session session(global);
    const ChosenPin chosen(session, options.choice);
    const IPin* unblocking = unblockingPinOf(chosen.pin, chosen.pins);
    PinSource source = options.unblockingPin;
    if (unblocking) {
        source.name = pinName(*unblocking);
    }
    const mw::ByteBuffer value = session.whileCardFree([&] { return readPin(source, false); });
    RefusedSecret secret = refusedPin(chosen.pin);
    secret.name = source.name;
    secret.whenBlocked = "the " + pinName(chosen.pin) + " can no longer be unblocked";
    std::optional<mw::ByteBuffer> newValue;
    if (wantsNewPin(options)) {
        newValue = readPinOf(session, chosen.pin, options.newPin, true);
    }
    presentPin(session, secret, [&] {
        if (newValue) {
            chosen.pin.unblock(session.channel(), value, *newValue);
        } else {
            chosen.pin.unblock(session.channel(), value);
        }
    });
    printPin(global, session, chosen);
}

// A `pin` subcommand with the PIN choice and the PIN sources it reads.
CLI::App* addPinCommand(CLI::App& group, const char* name, const char* description,
                        PinOptions& options, std::initializer_list<PinSource*> sources) {
    CLI::App* command = group.add_subcommand(name, description);
    addPinChoice(*command, options.choice);
    for (PinSource* source : sources) {
        addPinOptions(*command, *source);
    }
    return command;
}

} // namespace

void addPinCommands(CLI::App& program, const GlobalOptions& global) {
    CLI::App* group = program.add_subcommand("pin", "the card's PINs");
    group->require_subcommand(1);

    auto options = std::make_shared<PinOptions>();
    addPinCommand(*group, "status", "the PINs with their tries left, or the one chosen", *options,
                  {})
        ->callback([&global, options] { status(global, options->choice); });
    addPinCommand(*group, "verify", "verify a PIN (the user PIN unless chosen)", *options,
                  {&options->pin})
        ->callback([&global, options] { verify(global, *options); });
    addPinCommand(*group, "logout", "drop what verifying a PIN allowed", *options, {})
        ->callback([&global, options] { logout(global, *options); });
    addPinCommand(*group, "change", "change a PIN, given its current value", *options,
                  {&options->pin, &options->newPin})
        ->callback([&global, options] { change(global, *options); });
    CLI::App* unblockCommand = addPinCommand(
        *group, "unblock",
        "reset a blocked PIN's tries with its PUK, and set a new value with --new-pin*", *options,
        {&options->unblockingPin, &options->newPin});
    unblockCommand->add_flag("--new-pin", options->unblockWithNewPin,
                             "also set a new PIN, asked for twice at the prompt");
    unblockCommand->callback([&global, options] { unblock(global, *options); });
}

} // namespace p15tool
