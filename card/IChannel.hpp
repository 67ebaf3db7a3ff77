#ifndef CARD_ICHANNEL_HPP
#define CARD_ICHANNEL_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>
#include <stdexcept>

namespace card {

class Apdu;

// Carries command APDUs to one card. Implemented by the host's transports
// (PC/SC reader, in-process virtual card).
class MW_EXPORT_TYPE ICardTransport {
public:
    virtual ~ICardTransport() = default;
    // The card's answer to reset.
    virtual mw::ByteBuffer getAtr() const = 0;
    // Sends one command; the answer is the response data followed by SW1 SW2.
    virtual boost::shared_ptr<mw::ByteBuffer> transmit(const Apdu& command) const = 0;
    // Brackets a sequence of commands that must reach the card without
    // another application's commands in between. Nesting is counted.
    virtual void beginTransaction() const = 0;
    virtual void endTransaction() const = 0;
    /// How often another application has reset the card under this
    /// transport; after each, the card's selection and security state have
    /// started over. Current as of the call: outside a transaction a shared
    /// transport asks (cheaply, with no card command) whether the card was
    /// reset since, so that a host polling it sees another application's
    /// reset before its next command; inside a held transaction nobody else
    /// can reset the card. A transport nobody else can reach never sees one.
    virtual unsigned long resetCount() const { return 0; }
    /// How often another program is known to have changed the card's content
    /// under this transport (a card image another process stored); a
    /// transport that cannot tell reports none. A host that keeps what it
    /// read from the card reads it again after a change.
    virtual unsigned long changeCount() const { return 0; }
    /// Whether a transaction is held on this transport now.
    virtual bool inTransaction() const { return false; }
};

// The channel to a card that every card operation is given.
class MW_EXPORT_TYPE IChannel {
public:
    virtual ~IChannel() = default;
    // The command carrier; index 0 is the card's basic channel.
    virtual ICardTransport& transport(int index) const = 0;
};

/// Whether a command may reach the card only inside a transaction a host
/// holds (P15_REQUIRE_TRANSACTION=1, the mode the hosts' tests run in).
/// Otherwise a command sent outside one takes a transaction of its own.
bool transactionRequired();

/// A command sent, or a card-layer scope joined, outside any host
/// transaction while transactionRequired(): a host operation lacks its scope.
class MW_EXPORT_TYPE OutsideTransaction : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

/// The card held by one scope: what must not be split (MANAGE SECURITY
/// ENVIRONMENT and its PSO, a SELECT and the READ BINARY after it, a VERIFY
/// and what it allows) happens while one is held. Nesting is counted.
class MW_EXPORT_TYPE Transaction {
public:
    /// A host operation's scope: holds the card until the scope ends.
    explicit Transaction(const IChannel& channel);
    /// A transport's own scope around one call of its own.
    explicit Transaction(const ICardTransport& transport);
    /// The card layer's scope for one service call inside a host operation:
    /// joins the transaction the host holds. Without one it holds the card
    /// itself, or throws OutsideTransaction when transactionRequired().
    static Transaction join(const IChannel& channel);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// Leaves the card held past this scope, until the transport is
    /// released (which logs out while it still holds the card).
    void keepUntilRelease() { kept_ = true; }
    /// The transport that carries the scope's commands.
    const ICardTransport& transport() const { return transport_; }

private:
    const ICardTransport& transport_;
    bool kept_ = false;
};

/// For transports: a command about to be sent with no transaction held
/// throws OutsideTransaction when transactionRequired().
void checkOutsideTransaction(const char* command);

} // namespace card

#endif
