#include "tools/p15tool/Session.hpp"

#include "app/IApplication.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/pcsc/PcscTransport.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "tools/p15tool/Locations.hpp"
#include "tools/p15tool/ToolError.hpp"
#include "vcard/Personalise.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <iostream>

namespace p15tool {

namespace {

constexpr std::chrono::seconds readerWait(5);

std::unique_ptr<card::ICardTransport> openImage(const std::string& path, bool isDefault) {
    if (!fileExists(path)) {
        if (!isDefault) {
            throw ToolError(ExitCode::notFound, "no card image " + path +
                                                    "; create it with: p15tool --card " + path +
                                                    " init");
        }
        createParentDirectories(path);
        vcard::VirtualCard(vcard::personalise()).save(path);
        std::cerr << "p15tool: created a new virtual card " << path
                  << " with the default PINs; choose your own with: p15tool init --force\n";
    }
    try {
        return std::make_unique<host::VirtualCardTransport>(vcard::VirtualCard::open(path));
    } catch (const vcard::ImageError& error) {
        throw ToolError(ExitCode::failure, std::string(error.what()) +
                                               "; restore the file, or start anew with: "
                                               "p15tool --card " +
                                               path + " init --force");
    }
}

} // namespace

std::string cardImagePath(const GlobalOptions& options) {
    return options.cardImage ? *options.cardImage : defaultCardImage();
}

std::string chooseReader(const std::string& name) {
    if (!name.empty()) {
        return name;
    }
    const host::PcscContext context;
    std::vector<std::string> withCard;
    for (const std::string& reader : context.listReaders()) {
        if (context.waitForCard(reader, std::chrono::milliseconds(0))) {
            withCard.push_back(reader);
        }
    }
    if (withCard.empty()) {
        throw ToolError(ExitCode::card, "no reader holds a card; insert one, or name a reader "
                                        "with --reader NAME (see p15tool readers)");
    }
    if (withCard.size() > 1) {
        throw ToolError(ExitCode::usage, std::to_string(withCard.size()) +
                                             " readers hold a card; choose one with --reader "
                                             "NAME (see p15tool readers)");
    }
    return withCard.front();
}

Session::Session(const GlobalOptions& options)
    : configuration_(options.confFile) {
    if (options.confFile && !fileExists(*options.confFile)) {
        throw ToolError(ExitCode::notFound,
                        "no configuration file " + *options.confFile + "; check --conf");
    }
    loader_ = std::make_unique<host::PluginLoader>(pluginPath(), configuration_);
    connect(options);
    hold();
    auto card = boost::make_shared<host::iso7816::Card>(channel_);
    applications_ = loader_->getApplications(card, *channel_);
}

Session::~Session() {
    // The transport's release ends the transaction, resetting the card while
    // it still holds it.
    if (held_) {
        held_->keepUntilRelease();
    }
}

void Session::hold() const {
    held_.emplace(*channel_);
}

void Session::connect(const GlobalOptions& options) {
    std::unique_ptr<card::ICardTransport> transport;
    if (options.reader) {
        auto reader = host::connectReader(chooseReader(*options.reader), readerWait);
        location_.reader = reader->reader();
        transport = std::move(reader);
    } else {
        location_.image = cardImagePath(options);
        transport = openImage(location_.image, !options.cardImage);
    }
    channel_ = boost::make_shared<host::Channel>(std::move(transport));
}

mw::ByteBuffer Session::atr() const {
    return channel_->transport(0).getAtr();
}

std::string Session::cardName() const {
    return location_.image.empty() ? "the card in " + location_.reader
                                   : "the card " + location_.image;
}

app::IApplication& Session::application() const {
    if (applications_.empty()) {
        throw ToolError(ExitCode::notFound, "no PKCS#15 application on " + cardName() +
                                                "; use a card personalised with p15tool init");
    }
    return *applications_.front();
}

app::object::ICardObjectRepository& Session::repository() const {
    auto* repository = dynamic_cast<app::object::ICardObjectRepository*>(&application());
    if (!repository) {
        throw ToolError(ExitCode::card, "the plugin offers no objects of the card's application; "
                                        "use a plugin that lists PINs and keys");
    }
    return *repository;
}

} // namespace p15tool
