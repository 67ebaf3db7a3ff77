#include "host/pcsc/PcscTransport.hpp"

#include "card/Apdu.hpp"
#include "host/pcsc/PcscError.hpp"

#include <PCSC/pcsclite.h>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <stdexcept>

namespace host {

namespace {

constexpr DWORD anyProtocol = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;
// How long a failed exchange may take to show up as a removal in pcscd,
// which polls its readers.
constexpr std::chrono::seconds removalNotice(2);

// The reader could not talk to the card: removed, or merely mute.
bool isLostContact(LONG rv) {
    return rv == SCARD_E_NOT_TRANSACTED || rv == SCARD_F_COMM_ERROR ||
           rv == SCARD_E_COMM_DATA_LOST || rv == SCARD_W_UNRESPONSIVE_CARD ||
           rv == SCARD_W_UNPOWERED_CARD;
}

void check(LONG rv) {
    if (rv != SCARD_S_SUCCESS) {
        throwPcscError(rv);
    }
}

} // namespace

PcscTransport::PcscTransport(std::shared_ptr<const PcscContext> context, std::string reader,
                             OnRelease onRelease)
    : context_(std::move(context))
    , reader_(std::move(reader))
    , onRelease_(onRelease) {
    check(SCardConnect(context_->handle(), reader_.c_str(), SCARD_SHARE_SHARED, anyProtocol, &card_,
                       &protocol_));
}

PcscTransport::~PcscTransport() {
    if (transactionDepth_ > 0) {
        SCardEndTransaction(card_, SCARD_LEAVE_CARD);
    }
    SCardDisconnect(card_, onRelease_ == OnRelease::LogOut ? SCARD_RESET_CARD : SCARD_LEAVE_CARD);
}

void PcscTransport::reconnect() const {
    check(SCardReconnect(card_, SCARD_SHARE_SHARED, anyProtocol, SCARD_LEAVE_CARD, &protocol_));
    ++resets_;
    // The reset ended the transaction this transport held.
    if (transactionDepth_ > 0) {
        check(SCardBeginTransaction(card_));
    }
}

template <class Call> void PcscTransport::callWithReconnect(const Call& call) const {
    LONG rv = call();
    if (rv == SCARD_W_RESET_CARD) {
        reconnect();
        rv = call();
    }
    if (isLostContact(rv) && context_->waitForRemoval(reader_, removalNotice)) {
        rv = SCARD_W_REMOVED_CARD;
    }
    check(rv);
}

mw::ByteBuffer PcscTransport::getAtr() const {
    mw::ByteBuffer atr(MAX_ATR_SIZE);
    DWORD atrLength = MAX_ATR_SIZE;
    DWORD state = 0;
    DWORD protocol = 0;
    DWORD readerLength = 0;
    callWithReconnect([&] {
        atrLength = MAX_ATR_SIZE;
        readerLength = 0;
        return SCardStatus(card_, nullptr, &readerLength, &state, &protocol, atr.data(),
                           &atrLength);
    });
    atr.resize(atrLength);
    return atr;
}

boost::shared_ptr<mw::ByteBuffer> PcscTransport::transmit(const card::Apdu& command) const {
    auto response = boost::make_shared<mw::ByteBuffer>(MAX_BUFFER_SIZE_EXTENDED);
    DWORD responseLength = 0;
    callWithReconnect([&] {
        const SCARD_IO_REQUEST* pci = protocol_ == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1;
        responseLength = MAX_BUFFER_SIZE_EXTENDED;
        const LONG rv = SCardTransmit(card_, pci, command.bytes().data(),
                                      static_cast<DWORD>(command.bytes().size()), nullptr,
                                      response->data(), &responseLength);
        // A reader that loses the card in the middle of a command may still
        // report success, with no answer at all.
        return rv == SCARD_S_SUCCESS && responseLength < 2 ? SCARD_E_NOT_TRANSACTED : rv;
    });
    response->resize(responseLength);
    return response;
}

void PcscTransport::beginTransaction() const {
    if (transactionDepth_ == 0) {
        callWithReconnect([&] { return SCardBeginTransaction(card_); });
    }
    ++transactionDepth_;
}

void PcscTransport::endTransaction() const {
    if (transactionDepth_ == 0) {
        return;
    }
    if (--transactionDepth_ == 0) {
        // Runs from destructors: a card that went away already ended it.
        SCardEndTransaction(card_, SCARD_LEAVE_CARD);
    }
}

std::unique_ptr<PcscTransport> connectReader(const std::string& readerName,
                                             std::chrono::milliseconds wait, OnRelease onRelease) {
    auto context = std::make_shared<PcscContext>();
    const std::vector<std::string> readers = context->listReaders();
    const auto reader = std::find_if(readers.begin(), readers.end(), [&](const std::string& name) {
        return name.find(readerName) != std::string::npos;
    });
    if (reader == readers.end()) {
        throw std::runtime_error("no PC/SC reader named like \"" + readerName + "\"");
    }
    if (!context->waitForCard(*reader, wait)) {
        throw std::runtime_error("no card in " + *reader);
    }
    return std::make_unique<PcscTransport>(context, *reader, onRelease);
}

} // namespace host
