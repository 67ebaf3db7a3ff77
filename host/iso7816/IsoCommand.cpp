#include "host/iso7816/IsoCommand.hpp"

#include "card/Apdu.hpp"
#include "card/CardException.hpp"
#include "card/IChannel.hpp"

#include <boost/exception/get_error_info.hpp>

namespace host {
namespace iso7816 {

namespace {

constexpr unsigned char claLast = 0x00;
constexpr unsigned char claChained = 0x10;
constexpr std::size_t maxShortData = 255;
constexpr std::size_t maxShortNe = 256;
constexpr std::size_t maxExtendedData = 65535;
// A hostile card must not keep the host collecting forever: the longest
// answer the profile knows (a 64 KiB extended read) fits in this many rounds.
constexpr int maxGetResponses = 257;
const char* const getResponseName = "Get Response";

unsigned char sw1(unsigned short sw) {
    return static_cast<unsigned char>(sw >> 8);
}

// SW2 of 61xx and 6Cxx as a length; 00 stands for 256.
std::size_t lengthOf(unsigned short sw) {
    return (sw & 0xFF) == 0 ? 256 : (sw & 0xFF);
}

Response transmit(const card::Transaction& held, const mw::ByteBuffer& bytes, const char* name) {
    boost::shared_ptr<mw::ByteBuffer> answer;
    try {
        answer = held.transport().transmit(card::Apdu(bytes));
    } catch (card::CardException& e) {
        nameCommand(e, name); // transports do not know which command they carried
        throw;
    }
    if (!answer || answer->size() < 2) {
        CARD_THROW(card::InvalidDataException()
                   << card::Command(name)
                   << card::ErrorText("card answer shorter than a status word"));
    }
    const std::size_t length = answer->size() - 2;
    Response response;
    response.sw = static_cast<unsigned short>((answer->get(length) << 8) | answer->get(length + 1));
    response.data = answer->get(0, length);
    return response;
}

// Sends the APDU that `build` makes for an expected length. A card that
// answers 6Cxx names the length it has; a command that asked for data
// (carried an Le) is sent once more with that length. Nothing else is ever
// repeated: a VERIFY would present its PIN twice, and the last part of a
// chain would be taken as a new command on its own.
template <class Build>
Response transmitWithLeRetry(const card::Transaction& held, const Build& build, std::size_t ne,
                             const char* name) {
    Response response = transmit(held, build(ne), name);
    if (ne != 0 && sw1(response.sw) == 0x6C) {
        response = transmit(held, build(lengthOf(response.sw)), name);
    }
    return response;
}

mw::ByteBuffer getResponseApdu(std::size_t ne) {
    return mw::ByteBuffer{0x00, 0xC0, 0x00, 0x00, static_cast<unsigned char>(ne)};
}

// Fetches the rest of a long answer while the card signals 61xx.
void collectRemainder(const card::Transaction& held, Response& response) {
    for (int round = 0; sw1(response.sw) == 0x61; ++round) {
        if (round == maxGetResponses) {
            CARD_THROW(card::InvalidDataException() << card::Command(getResponseName)
                                                    << card::ErrorText("card answer does not end"));
        }
        Response next =
            transmitWithLeRetry(held, getResponseApdu, lengthOf(response.sw), getResponseName);
        if (next.sw != 0x9000 && sw1(next.sw) != 0x61) {
            throwStatus(getResponseName, next.sw);
        }
        response.data.append(next.data);
        response.sw = next.sw;
    }
}

} // namespace

void nameCommand(card::CardException& e, const char* command) {
    if (boost::get_error_info<card::Command>(e) == nullptr) {
        e << card::Command(command);
    }
}

void throwStatus(const char* command, unsigned short sw) {
    CARD_THROW(card::CardException() << card::Command(command) << card::StatusCode(sw));
}

IsoCommand::IsoCommand(const char* name, unsigned char ins, unsigned char p1, unsigned char p2)
    : name_(name)
    , ins_(ins)
    , p1_(p1)
    , p2_(p2) {}

IsoCommand& IsoCommand::withData(mw::ByteBuffer data) {
    data_ = std::move(data);
    return *this;
}

IsoCommand& IsoCommand::expecting(std::size_t ne) {
    ne_ = ne;
    return *this;
}

IsoCommand& IsoCommand::extendedLength(bool allowed) {
    extended_ = allowed;
    return *this;
}

std::size_t IsoCommand::maxData() const {
    return extended_ ? maxExtendedData : maxShortData;
}

// Short fields where they suffice (they are shorter); extended ones only
// for data or an answer a short field cannot carry.
mw::ByteBuffer IsoCommand::apdu(unsigned char cla, std::size_t offset, std::size_t length,
                                std::size_t ne) const {
    const bool extended = length > maxShortData || ne > maxShortNe;
    mw::ByteBuffer bytes{cla, ins_, p1_, p2_};
    const auto appendLength = [&](std::size_t value) { // 65536 and 256 are written as 0
        if (extended) {
            bytes.append(static_cast<unsigned char>(value >> 8));
        }
        bytes.append(static_cast<unsigned char>(value));
    };
    if (extended) {
        bytes.append(0x00);
    }
    if (length != 0) {
        appendLength(length);
        bytes.append(data_.data() + offset, length);
    }
    if (ne != 0) {
        appendLength(ne);
    }
    return bytes;
}

void IsoCommand::sendChainedParts(const card::Transaction& held) const {
    for (std::size_t offset = 0; data_.size() - offset > maxData(); offset += maxData()) {
        Response part = transmit(held, apdu(claChained, offset, maxData(), 0), name_);
        if (part.sw != 0x9000) {
            throwStatus(name_, part.sw);
        }
    }
}

Response IsoCommand::sendFinalPart(const card::Transaction& held) const {
    const std::size_t remainder = data_.size() % maxData();
    const std::size_t length = remainder == 0 ? std::min(data_.size(), maxData()) : remainder;
    const std::size_t offset = data_.size() - length;
    const auto build = [&](std::size_t ne) { return apdu(claLast, offset, length, ne); };
    if (offset != 0) { // the tail of a chain
        return transmit(held, build(ne_), name_);
    }
    return transmitWithLeRetry(held, build, ne_, name_);
}

Response IsoCommand::send(const card::Transaction& held) const {
    sendChainedParts(held);
    Response response = sendFinalPart(held);
    collectRemainder(held, response);
    return response;
}

mw::ByteBuffer IsoCommand::execute(const card::Transaction& held) const {
    Response response = send(held);
    if (response.sw != 0x9000) {
        throwStatus(name_, response.sw);
    }
    return std::move(response.data);
}

mw::ByteBuffer IsoCommand::executeExact(const card::Transaction& held) const {
    mw::ByteBuffer data = execute(held);
    if (data.size() != ne_) {
        CARD_THROW(card::InvalidDataException()
                   << card::Command(name_)
                   << card::ErrorText("card answered another length than asked for"));
    }
    return data;
}

} // namespace iso7816
} // namespace host
