#ifndef CARD_ICHANNEL_HPP
#define CARD_ICHANNEL_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <boost/shared_ptr.hpp>

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
    // How often another application has reset the card under this
    // transport; after each, the card's selection and security state have
    // started over. A transport nobody else can reach never sees one.
    virtual unsigned long resetCount() const { return 0; }
};

// The channel to a card that every card operation is given.
class MW_EXPORT_TYPE IChannel {
public:
    virtual ~IChannel() = default;
    // The command carrier; index 0 is the card's basic channel.
    virtual ICardTransport& transport(int index) const = 0;
};

// Holds a transaction on a channel's basic transport for one scope.
class Transaction {
public:
    explicit Transaction(const IChannel& channel)
        : transport_(channel.transport(0)) {
        transport_.beginTransaction();
    }
    ~Transaction() { transport_.endTransaction(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

private:
    ICardTransport& transport_;
};

} // namespace card

#endif
