#ifndef HOST_PCSC_PCSCTRANSPORT_HPP
#define HOST_PCSC_PCSCTRANSPORT_HPP

#include "card/IChannel.hpp"
#include "host/CardRelease.hpp"
#include "host/pcsc/PcscContext.hpp"

#include <chrono>
#include <memory>
#include <string>

namespace host {

// A card in a PC/SC reader, shared with other applications (T=0 or T=1,
// whichever the card offers). Transactions map onto PC/SC transactions, the
// outermost level only. When another application has reset the card, the
// transport reconnects and repeats the call once; a removed card or a
// vanished reader is a card::CardException with a clear text. Released, it
// resets the card (nothing this host verified stays verified) unless told
// to keep the login.
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
    unsigned long resetCount() const override { return resets_; }

    const std::string& reader() const { return reader_; }
    // SCARD_PROTOCOL_T0 or SCARD_PROTOCOL_T1.
    DWORD protocol() const { return protocol_; }

private:
    // Runs a PC/SC call; after SCARD_W_RESET_CARD reconnects and runs it
    // once more. Any other failure throws.
    template <class Call> void callWithReconnect(const Call& call) const;
    void reconnect() const;

    std::shared_ptr<const PcscContext> context_;
    std::string reader_;
    mutable SCARDHANDLE card_ = 0;
    mutable DWORD protocol_ = 0;
    mutable int transactionDepth_ = 0;
    mutable unsigned long resets_ = 0;
    OnRelease onRelease_;
};

// Connects to the first reader whose name contains `readerName` as soon as
// it holds a card, waiting at most `wait`. No such reader, or no card in
// time, is a std::runtime_error naming what was looked for.
std::unique_ptr<PcscTransport> connectReader(const std::string& readerName,
                                             std::chrono::milliseconds wait,
                                             OnRelease onRelease = onReleaseFromEnvironment());

} // namespace host

#endif
