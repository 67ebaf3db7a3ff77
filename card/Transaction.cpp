#include "card/IChannel.hpp"

#include <cstdlib>
#include <cstring>
#include <string>

namespace card {

bool transactionRequired() {
    static const bool required = [] {
        const char* mode = std::getenv("P15_REQUIRE_TRANSACTION");
        return mode != nullptr && std::strcmp(mode, "1") == 0;
    }();
    return required;
}

void checkOutsideTransaction(const char* command) {
    if (transactionRequired()) {
        throw OutsideTransaction(std::string(command) + " sent outside a card transaction");
    }
}

Transaction::Transaction(const ICardTransport& transport)
    : transport_(transport) {
    transport_.beginTransaction();
}

Transaction::Transaction(const IChannel& channel)
    : Transaction(channel.transport(0)) {}

Transaction Transaction::join(const IChannel& channel) {
    const ICardTransport& transport = channel.transport(0);
    if (!transport.inTransaction()) {
        checkOutsideTransaction("a card command");
    }
    return Transaction(transport);
}

Transaction::~Transaction() {
    if (!kept_) {
        transport_.endTransaction();
    }
}

} // namespace card
