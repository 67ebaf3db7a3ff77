#ifndef TOOLS_P15TOOL_SESSION_HPP
#define TOOLS_P15TOOL_SESSION_HPP

#include "card/IChannel.hpp"
#include "host/loader/ConfigurationSource.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/shared_ptr.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace app {
class IApplication;
namespace object {
class ICardObjectRepository;
}
} // namespace app
namespace host {
class Channel;
class PluginLoader;
} // namespace host

namespace p15tool {

// The options every command shares.
struct GlobalOptions {
    std::optional<std::string> cardImage;
    // Set when --reader was given; empty for "the one reader holding a card".
    std::optional<std::string> reader;
    std::optional<std::string> confFile;
    bool json = false;
};

// Where the card of a session is: a virtual card image or a PC/SC reader.
struct CardLocation {
    std::string image;  // empty for a reader
    std::string reader; // empty for an image
};

// One card and the plugin's PKCS#15 application on it, reached the way any
// host reaches them: the plugin loaded with dlopen and QueryPlugin, the card
// through the host's card layer over the in-process virtual card or PC/SC.
//
// A command is one operation on the card: the session holds the card in a
// transaction from its opening to its release, so that no other program
// comes between two of its commands. It lets the card go only while it waits
// for someone to type a PIN, and never once a PIN was presented: from then
// on the card stays held until the release resets it, so that nobody else
// finds the PIN verified.
class Session {
public:
    // Opens the card the options name. The default card image is created and
    // personalised when it does not exist yet, and the tool says so on stderr.
    explicit Session(const GlobalOptions& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const CardLocation& location() const { return location_; }
    // "the card /path/card.json" or "the card in READER", for messages.
    std::string cardName() const;
    mw::ByteBuffer atr() const;
    const host::Channel& channel() const { return *channel_; }
    // The PKCS#15 application, selected; a card without one is a ToolError.
    app::IApplication& application() const;
    // The application's objects (PINs, keys, ...), as the plugin offers them.
    app::object::ICardObjectRepository& repository() const;

    /// Runs `ask` (which may wait for the user) with the card free for other
    /// programs, unless a PIN was presented already.
    template <class Ask> auto whileCardFree(const Ask& ask) const {
        const bool letGo = !pinPresented_;
        if (letGo) {
            held_.reset();
        }
        auto answer = ask();
        if (letGo) {
            hold();
        }
        return answer;
    }
    /// Runs `present` (a card command that presents a PIN): the card stays
    /// held from here until its release.
    template <class Present> void presentingPin(const Present& present) const {
        pinPresented_ = true;
        present();
    }

private:
    void connect(const GlobalOptions& options);
    void hold() const;

    host::ConfigurationSource configuration_;
    std::unique_ptr<host::PluginLoader> loader_;
    CardLocation location_;
    boost::shared_ptr<host::Channel> channel_;
    std::vector<boost::shared_ptr<app::IApplication>> applications_;
    mutable std::optional<card::Transaction> held_;
    mutable bool pinPresented_ = false;
};

// The reader for --reader: the one named, or with an empty name the only
// reader that holds a card.
std::string chooseReader(const std::string& name);

// The card image the options name, or the user's default one.
std::string cardImagePath(const GlobalOptions& options);

} // namespace p15tool

#endif
