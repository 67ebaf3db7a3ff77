// p15-vcard-serve: makes a virtual card the card in pcscd's vpcd reader.

#include "vcard/VirtualCard.hpp"
#include "vcard/VpcdBridge.hpp"

#include <CLI/CLI.hpp>

#include <atomic>
#include <csignal>
#include <iostream>

namespace {

std::atomic<bool> stopRequested{false};

void requestStop(int) {
    stopRequested = true;
}

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Serve a p15kit virtual card to pcscd through the vpcd reader driver"};
    std::string image;
    std::string host = "127.0.0.1";
    std::uint16_t port = vcard::VpcdBridge::defaultPort;
    int connectTimeout = 10;
    bool allowSharedFolder = false;
    app.add_option("--image", image, "card image (default: a fresh card held in memory)");
    app.add_flag("--allow-shared-folder", allowSharedFolder,
                 "serve an image whose folder or file others than its owner may write");
    app.add_option("--host", host, "address of the vpcd driver");
    app.add_option("--port", port, "TCP port of the vpcd reader");
    app.add_option("--connect-timeout", connectTimeout, "seconds to wait for the driver");
    CLI11_PARSE(app, argc, argv);

    installSignalHandlers();
    try {
        std::unique_ptr<vcard::VirtualCard> card =
            image.empty() ? vcard::VirtualCard::personalised()
                          : vcard::VirtualCard::open(image, allowSharedFolder
                                                                ? vcard::ImageAccess::Shared
                                                                : vcard::ImageAccess::OwnerOnly);
        vcard::VpcdBridge bridge(*card);
        bridge.connect(host, port, std::chrono::seconds(connectTimeout));
        std::cerr << "p15-vcard-serve: serving " << (image.empty() ? "an in-memory card" : image)
                  << " on " << host << ":" << port << "\n";
        bridge.serve(stopRequested);
    } catch (const std::exception& error) {
        std::cerr << "p15-vcard-serve: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
