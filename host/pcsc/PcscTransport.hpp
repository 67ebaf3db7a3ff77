#ifndef HOST_PCSC_PCSCTRANSPORT_HPP
#define HOST_PCSC_PCSCTRANSPORT_HPP

#include "card/IChannel.hpp"
#include "host/CardRelease.hpp"
#include "host/pcsc/BoundedCaller.hpp"
#include "host/pcsc/PcscContext.hpp"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace host {

/// A card in a PC/SC reader, shared with other applications (T=0 or T=1,
/// whichever the card offers). Transactions map onto PC/SC transactions,
/// the outermost level only; a command sent outside one takes one of its
/// own. A removed card or a vanished reader is a card::CardException with a
/// clear text. Released, it resets the card (nothing this host verified
/// stays verified) unless told to keep the login.
///
/// Another application may reset the card between this host's
/// transactions. Noticed when a transaction begins (nothing of it has
/// reached the card yet), the transport reconnects, counts the reset and
/// goes on. Noticed by a command inside a transaction, it has cleared what
/// the transaction's earlier commands set up (the MANAGE SECURITY
/// ENVIRONMENT before a PSO, the SELECT before a READ BINARY, a VERIFY): the
/// transport reconnects, counts the reset, takes the transaction again (so
/// that the scope ends as it began) and throws "card reset by another
/// application during the operation"; the command is never repeated.
///
/// Another application's transaction keeps pcsc-lite waiting without end;
/// the transport waits at most transactionLimit() for the card (the
/// blocking call runs on a helper thread of the transport's own), then lets
/// go of its connection and throws "card in use by another application";
/// its next call connects again (and counts a reset). Released meanwhile, it
/// cannot reset the card and leaves it as it is.
///
/// Not thread-safe: one thread at a time uses a transport.
class PcscTransport : public card::ICardTransport {
public:
    PcscTransport(std::shared_ptr<const PcscContext> context, std::string reader,
                  OnRelease onRelease = onReleaseFromEnvironment());
    ~PcscTransport() override;
    PcscTransport(const PcscTransport&) = delete;
    PcscTransport& operator=(const PcscTransport&) = delete;

    mw::ByteBuffer getAtr() const override;
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override;
    void beginTransaction() const override;
    void endTransaction() const override;
    /// Resets counted up to now: outside a transaction it asks pcscd
    /// (SCardStatus, no card command, at most 0.1 s) whether the card was
    /// reset since.
    unsigned long resetCount() const override;
    bool inTransaction() const override { return transactionDepth_ > 0; }

    const std::string& reader() const { return reader_; }
    // SCARD_PROTOCOL_T0 or SCARD_PROTOCOL_T1.
    DWORD protocol() const { return protocol_; }

private:
    // The outermost SCardBeginTransaction; after SCARD_W_RESET_CARD
    // reconnects and begins once more.
    void takeCard() const;
    // Throws for a failed command; a reset throws after reconnecting and
    // taking the transaction again.
    void checkCommand(const char* call, LONG rv) const;
    // Counts a reset unless resetCount() counted it already.
    void countReset() const;
    void reconnect() const;
    // Connects when the last connection was let go.
    void connect() const;
    // Runs `call` on the card handle, waiting at most the limit; past it,
    // lets go of the connection and throws.
    template <class Result, class Call> Result withinLimit(const Call& call) const;
    // SCardBeginTransaction within the limit.
    LONG beginWithinLimit() const;
    void disconnect(DWORD disposition) const;

    std::shared_ptr<const PcscContext> context_;
    std::string reader_;
    std::chrono::seconds limit_;
    // The handle's own context: a connect that waits on another
    // application's transaction is left to finish on it alone.
    mutable SCARDCONTEXT cardContext_ = 0;
    mutable SCARDHANDLE card_ = 0;
    mutable DWORD protocol_ = 0;
    mutable int transactionDepth_ = 0;
    mutable unsigned long resets_ = 0;
    // resetCount() counted a reset the connection has not reconnected after.
    mutable bool resetCounted_ = false;
    // resetCount()'s last question to pcscd has not come back yet.
    std::shared_ptr<std::atomic<bool>> probeStuck_ = std::make_shared<std::atomic<bool>>(false);
    mutable BoundedCaller caller_;
    OnRelease onRelease_;
};

// How long a transport waits for another application's transaction to end:
// P15_TRANSACTION_TIMEOUT seconds, 10 when unset or not a positive number.
std::chrono::seconds transactionLimit();

// Connects to the first reader whose name contains `readerName` as soon as
// it holds a card, waiting at most `wait`. No such reader, or no card in
// time, is a std::runtime_error naming what was looked for.
std::unique_ptr<PcscTransport> connectReader(const std::string& readerName,
                                             std::chrono::milliseconds wait,
                                             OnRelease onRelease = onReleaseFromEnvironment());

} // namespace host

#endif
