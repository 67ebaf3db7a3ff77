#include "host/pcsc/PcscTransport.hpp"

#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "host/ApduTrace.hpp"
#include "host/pcsc/PcscError.hpp"

#include <PCSC/pcsclite.h>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

namespace host {

namespace {

constexpr DWORD anyProtocol = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;
// How long a failed exchange may take to show up as a removal in pcscd,
// which polls its readers.
constexpr std::chrono::seconds removalNotice(2);
constexpr long defaultLimit = 10;
// How long resetCount() waits for pcscd's answer: longer, and another
// application holds the card.
constexpr std::chrono::milliseconds probeLimit(100);
constexpr long longestLimit = 24 * 3600;

// The reader could not talk to the card: removed, or merely mute.
bool isLostContact(LONG rv) {
    return rv == SCARD_E_NOT_TRANSACTED || rv == SCARD_E_COMM_DATA_LOST ||
           rv == SCARD_W_UNRESPONSIVE_CARD || rv == SCARD_W_UNPOWERED_CARD;
}

void check(const char* call, LONG rv) {
    if (rv != SCARD_S_SUCCESS) {
        throwPcscError(call, rv);
    }
}

// A card handle in a context of its own.
struct Connection {
    LONG rv = SCARD_S_SUCCESS;
    SCARDCONTEXT context = 0;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
};

void release(const Connection& connection) {
    if (connection.card != 0) {
        SCardDisconnect(connection.card, SCARD_LEAVE_CARD);
    }
    if (connection.context != 0) {
        SCardReleaseContext(connection.context);
    }
}

Connection connectTo(const std::string& reader) {
    Connection connection;
    connection.rv =
        SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &connection.context);
    if (connection.rv != SCARD_S_SUCCESS) {
        connection.context = 0;
        return connection;
    }
    connection.rv = SCardConnect(connection.context, reader.c_str(), SCARD_SHARE_SHARED,
                                 anyProtocol, &connection.card, &connection.protocol);
    if (connection.rv != SCARD_S_SUCCESS) {
        connection.card = 0;
    }
    return connection;
}

} // namespace

std::chrono::seconds transactionLimit() {
    const char* text = std::getenv("P15_TRANSACTION_TIMEOUT");
    char* end = nullptr;
    const long seconds = text ? std::strtol(text, &end, 10) : 0;
    const bool valid = text && *text != '\0' && *end == '\0' && seconds > 0;
    return std::chrono::seconds(valid ? std::min(seconds, longestLimit) : defaultLimit);
}

PcscTransport::PcscTransport(std::shared_ptr<const PcscContext> context, std::string reader,
                             OnRelease onRelease)
    : context_(std::move(context))
    , reader_(std::move(reader))
    , limit_(transactionLimit())
    , onRelease_(onRelease) {
    connect();
}

PcscTransport::~PcscTransport() {
    if (card_ == 0) {
        return;
    }
    const bool logOut = onRelease_ == OnRelease::LogOut;
    bool held = transactionDepth_ > 0;
    if (logOut && !held) {
        try {
            held = beginWithinLimit() == SCARD_S_SUCCESS;
        } catch (const card::CardException&) {
            return; // another application held the card all along: let go as it is
        }
    }
    // pcscd resets a card only once no other application holds it: held by
    // this transport, that is at once.
    if (held && !logOut) {
        SCardEndTransaction(card_, SCARD_LEAVE_CARD);
    }
    disconnect(held && logOut ? SCARD_RESET_CARD : SCARD_LEAVE_CARD);
}

void PcscTransport::connect() const {
    if (card_ != 0) {
        return;
    }
    const std::string reader = reader_;
    const std::optional<Connection> connection = caller_.call<Connection>(
        limit_, [reader] { return connectTo(reader); }, release);
    if (!connection) {
        throwCardInUse(limit_);
    }
    if (connection->rv != SCARD_S_SUCCESS) {
        release(*connection);
        throwPcscError(connection->context == 0 ? "SCardEstablishContext" : "SCardConnect",
                       connection->rv);
    }
    cardContext_ = connection->context;
    card_ = connection->card;
    protocol_ = connection->protocol;
}

void PcscTransport::disconnect(DWORD disposition) const {
    SCardDisconnect(card_, disposition);
    SCardReleaseContext(cardContext_);
    card_ = 0;
    cardContext_ = 0;
    resetCounted_ = false; // the next connection counts one anyway
}

template <class Result, class Call> Result PcscTransport::withinLimit(const Call& call) const {
    const SCARDHANDLE card = card_;
    const std::optional<Result> result = caller_.call<Result>(
        limit_, [card, call] { return call(card); }, [](const Result&) {});
    if (!result) {
        // pcsc-lite retries only while the handle exists: this ends the
        // thread's wait. A transaction it won meanwhile ends with the handle.
        disconnect(SCARD_LEAVE_CARD);
        throwCardInUse(limit_);
    }
    return *result;
}

LONG PcscTransport::beginWithinLimit() const {
    return withinLimit<LONG>([](SCARDHANDLE card) { return SCardBeginTransaction(card); });
}

void PcscTransport::reconnect() const {
    const auto [rv, protocol] = withinLimit<std::pair<LONG, DWORD>>([](SCARDHANDLE card) {
        DWORD active = 0;
        const LONG result =
            SCardReconnect(card, SCARD_SHARE_SHARED, anyProtocol, SCARD_LEAVE_CARD, &active);
        return std::make_pair(result, active);
    });
    check("SCardReconnect", rv);
    protocol_ = protocol;
    countReset();
}

void PcscTransport::countReset() const {
    if (!resetCounted_) {
        ++resets_;
    }
    resetCounted_ = false;
}

void PcscTransport::takeCard() const {
    LONG rv = beginWithinLimit();
    if (rv == SCARD_W_RESET_CARD) {
        reconnect();
        rv = beginWithinLimit();
    }
    check("SCardBeginTransaction", rv);
}

void PcscTransport::checkCommand(const char* call, LONG rv) const {
    if (rv == SCARD_W_RESET_CARD) {
        reconnect();
        // The reset ended the transaction: taken again, the scope ends as it began.
        check("SCardBeginTransaction", beginWithinLimit());
        throwResetDuringOperation();
    }
    if (isLostContact(rv) && context_->waitForRemoval(reader_, removalNotice)) {
        rv = SCARD_W_REMOVED_CARD;
    }
    check(call, rv);
}

unsigned long PcscTransport::resetCount() const {
    if (transactionDepth_ > 0 || card_ == 0 || resetCounted_ || *probeStuck_) {
        return resets_;
    }
    // pcsc-lite's SCardStatus waits for another application's transaction
    // to end: past a short wait, that application holds the card, and the
    // stuck call ends with it (or with the handle). No new question till then.
    *probeStuck_ = true;
    const SCARDHANDLE card = card_;
    const std::optional<LONG> rv = caller_.call<LONG>(
        probeLimit,
        [card] {
            DWORD readerLength = 0;
            DWORD state = 0;
            DWORD protocol = 0;
            DWORD atrLength = 0;
            return SCardStatus(card, nullptr, &readerLength, &state, &protocol, nullptr,
                               &atrLength);
        },
        [stuck = probeStuck_](LONG) { *stuck = false; });
    if (rv) {
        *probeStuck_ = false;
    }
    // Any other failure shows at the next command.
    if (rv == SCARD_W_RESET_CARD) {
        ++resets_;
        resetCounted_ = true;
    }
    return resets_;
}

mw::ByteBuffer PcscTransport::getAtr() const {
    // Held for the call: pcsc-lite then never waits for another application
    // inside it.
    const card::Transaction held(*this);
    mw::ByteBuffer atr(MAX_ATR_SIZE);
    DWORD atrLength = MAX_ATR_SIZE;
    DWORD state = 0;
    DWORD protocol = 0;
    DWORD readerLength = 0;
    checkCommand("SCardStatus", SCardStatus(card_, nullptr, &readerLength, &state, &protocol,
                                            atr.data(), &atrLength));
    atr.resize(atrLength);
    return atr;
}

boost::shared_ptr<mw::ByteBuffer> PcscTransport::transmit(const card::Apdu& command) const {
    if (transactionDepth_ == 0) {
        card::checkOutsideTransaction("a command APDU");
    }
    // Held for the call: pcsc-lite then never waits for another application
    // inside it.
    const card::Transaction held(*this);
    auto response = boost::make_shared<mw::ByteBuffer>(MAX_BUFFER_SIZE_EXTENDED);
    DWORD responseLength = MAX_BUFFER_SIZE_EXTENDED;
    const SCARD_IO_REQUEST* pci = protocol_ == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1;
    const LONG rv = SCardTransmit(card_, pci, command.bytes().data(),
                                  static_cast<DWORD>(command.bytes().size()), nullptr,
                                  response->data(), &responseLength);
    response->resize(rv == SCARD_S_SUCCESS ? responseLength : 0);
    traceApdu(command, response.get());
    // A reader that loses the card in the middle of a command may still
    // report success, with no answer at all.
    checkCommand("SCardTransmit",
                 rv == SCARD_S_SUCCESS && responseLength < 2 ? SCARD_E_NOT_TRANSACTED : rv);
    return response;
}

void PcscTransport::beginTransaction() const {
    if (transactionDepth_ == 0) {
        if (card_ == 0) {
            // The last connection was let go while another application held
            // the card: what it did meanwhile is unknown, as after a reset.
            connect();
            countReset();
        }
        takeCard();
    }
    ++transactionDepth_;
}

void PcscTransport::endTransaction() const {
    if (transactionDepth_ == 0) {
        return;
    }
    // Runs from destructors: a card that went away already ended it.
    if (--transactionDepth_ == 0 && card_ != 0) {
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
