// p15-vcard: personalises a virtual card image and shows what an image holds (never its secrets).

#include "tools/pininput/PinInput.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <CLI/CLI.hpp>

#include <iostream>
#include <sys/stat.h>

namespace {

std::string fidText(std::uint16_t fid) {
    return vcard::toHex({static_cast<std::uint8_t>(fid >> 8), static_cast<std::uint8_t>(fid)});
}

std::string describe(const vcard::CardFile& file) {
    switch (file.kind) {
    case vcard::FileKind::Df:
        return file.name.empty() ? "DF" : "DF name " + vcard::toHex(file.name);
    case vcard::FileKind::TransparentEf:
        return "EF " + std::to_string(file.content.size()) + " bytes";
    case vcard::FileKind::PrivateKey:
    case vcard::FileKind::PublicKey: {
        std::string kind = file.kind == vcard::FileKind::PrivateKey ? "private" : "public";
        return "RSA " + kind + " key file " + std::to_string(file.keyBits) + " bits, " +
               (file.key ? "key present" : "empty");
    }
    }
    return "";
}

void printTree(const vcard::CardFile& file, const std::string& indent) {
    std::cout << indent << fidText(file.fid) << "  " << describe(file) << "  security A1 "
              << vcard::toHex(file.security.encode()) << "\n";
    for (const auto& child : file.children)
        printTree(*child, indent + "  ");
}

void inspect(const std::string& path) {
    vcard::CardState state = vcard::CardImage::load(path);
    std::cout << "profile " << vcard::profileName(state.profile) << "\n";
    printTree(state.files.mf(), "");
    for (const auto& [reference, pin] : state.pins.pins()) {
        std::cout << "PIN " << fidText(reference).substr(2) << "  tries " << int(pin.triesLeft)
                  << "/" << int(pin.maxTries);
        if (pin.unblockingPin)
            std::cout << "  unblocked by PIN " << fidText(*pin.unblockingPin).substr(2);
        std::cout << "\n";
    }
}

/// The three PINs of a new card and where each comes from.
struct PinSources {
    pininput::PinSource user{"user PIN", "pin", "", ""};
    pininput::PinSource unblocking{"PUK", "puk", "", ""};
    pininput::PinSource so{"SO PIN", "so-pin", "", ""};
    bool defaults = false;
};

void readPin(const pininput::PinSource& source, std::string& pin) {
    const mw::ByteBuffer typed = pininput::read(source, true);
    vcard::wipe(pin);
    pin.assign(typed.begin(), typed.end());
}

void personalise(const std::string& path, vcard::Personalisation& options, const PinSources& pins,
                 bool force) {
    struct stat existing;
    if (!force && ::stat(path.c_str(), &existing) == 0)
        throw std::runtime_error("card image '" + path + "' exists; use --force to replace it");
    // With --default-pins, a PIN whose source is given still comes from there.
    const auto take = [&pins](const pininput::PinSource& source, std::string& pin) {
        if (!pins.defaults || !source.environmentVariable.empty() || !source.file.empty())
            readPin(source, pin);
    };
    take(pins.user, options.userPin);
    take(pins.unblocking, options.unblockingPin);
    take(pins.so, options.soPin);
    vcard::VirtualCard card(vcard::personalise(options));
    for (std::string* pin : {&options.userPin, &options.unblockingPin, &options.soPin})
        vcard::wipe(*pin);
    card.save(path);
    std::cout << "personalised " << path << "\n"
              << "label:    " << options.label << "\n"
              << "profile:  " << vcard::profileName(options.profile) << "\n"
              << "user PIN: reference 01, 3 tries\n"
              << "PUK:      reference 02, 5 tries\n"
              << "SO PIN:   reference 03, 3 tries\n";
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"p15kit virtual card images"};
    app.require_subcommand(1);

    vcard::Personalisation options;
    PinSources pins;
    std::string personalisePath;
    bool force = false;
    CLI::App* personaliseCommand =
        app.add_subcommand("personalise", "create a card image with an empty PKCS#15 application");
    personaliseCommand->add_option("image", personalisePath, "card image file")->required();
    personaliseCommand->add_option("--label", options.label, "token label");
    // PINs (4 to 8 digits) are never plain arguments, which other users see.
    for (pininput::PinSource* source : {&pins.user, &pins.unblocking, &pins.so})
        pininput::addPinOptions(*personaliseCommand, *source);
    personaliseCommand->add_flag("--default-pins", pins.defaults,
                                 "the well-known test PINs 123456, PUK 12345678, SO PIN 87654321");
    personaliseCommand->add_flag("--force", force, "replace an existing image");
    std::string profile = "native";
    personaliseCommand
        ->add_option("--profile", profile,
                     "how the card speaks: native (docs/card-profile.md) or iso (as cards of other "
                     "makes)")
        ->check(CLI::IsMember({"native", "iso"}));

    std::string inspectPath;
    CLI::App* inspectCommand = app.add_subcommand("inspect", "list the files and PINs of an image");
    inspectCommand->add_option("image", inspectPath, "card image file")->required();

    CLI11_PARSE(app, argc, argv);
    try {
        if (*personaliseCommand) {
            options.profile = vcard::profileFromName(profile);
            personalise(personalisePath, options, pins, force);
        } else
            inspect(inspectPath);
    } catch (const std::exception& error) {
        std::cerr << "p15-vcard: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
