#ifndef HOST_ISO7816_ISOCOMMAND_HPP
#define HOST_ISO7816_ISOCOMMAND_HPP

#include "card/CardException.hpp"
#include "mw/ByteBuffer.hpp"

#include <cstddef>

namespace card {
class Transaction;
}

namespace host {
namespace iso7816 {

// A card's answer with the status word split off.
struct Response {
    mw::ByteBuffer data;
    unsigned short sw = 0;
};

// One ISO 7816-4 command as the card layer means it, before it is cut into
// APDUs. To a card that takes extended lengths, data up to 65535 bytes and
// answers up to 65536 bytes move in one APDU. Otherwise, short APDUs: data
// over 255 bytes goes out as a command chain, an answer over 256 bytes comes
// back through GET RESPONSE (61xx). Either way, a wrong Le
// (6Cxx) to a command that asked for data is repeated once with the length
// the card names; any other command is never sent twice. The data may be a
// secret; it lives only in wiping buffers.
class IsoCommand {
public:
    // `name` (a string literal) names the command in card exceptions.
    IsoCommand(const char* name, unsigned char ins, unsigned char p1, unsigned char p2);

    IsoCommand& withData(mw::ByteBuffer data);
    // Expected answer length: 1..256, or up to 65536 with extended length.
    IsoCommand& expecting(std::size_t ne);
    // Whether the card takes extended Lc and Le fields (short APDUs only
    // unless told).
    IsoCommand& extendedLength(bool allowed);

    // Sends the command over the transport of `held`: no command reaches the
    // card without a transaction, which the services join from the host's
    // operation. The status word is the caller's to judge.
    Response send(const card::Transaction& held) const;
    // Sends the command; any status word but 9000 is a card::CardException.
    mw::ByteBuffer execute(const card::Transaction& held) const;
    // As execute, and an answer of another length than expected is a
    // card::InvalidDataException.
    mw::ByteBuffer executeExact(const card::Transaction& held) const;

    const char* name() const { return name_; }

private:
    mw::ByteBuffer apdu(unsigned char cla, std::size_t offset, std::size_t length,
                        std::size_t ne) const;
    std::size_t maxData() const;
    void sendChainedParts(const card::Transaction& held) const;
    Response sendFinalPart(const card::Transaction& held) const;

    const char* name_;
    unsigned char ins_;
    unsigned char p1_;
    unsigned char p2_;
    mw::ByteBuffer data_;
    std::size_t ne_ = 0;
    bool extended_ = false;
};

// The longest answer one APDU can ask for: Le 00, or extended Le 00 00.
constexpr std::size_t longestAnswer(bool extendedLength) {
    return extendedLength ? 65536 : 256;
}

// card::CardException naming the command and carrying the status word.
[[noreturn]] void throwStatus(const char* command, unsigned short sw);

// Names the command on a card exception that does not name one yet.
void nameCommand(card::CardException& e, const char* command);

// Runs `parse` over an answer of `command`: a malformed answer is reported
// as that command's.
template <class Parse> auto parseAnswerOf(const char* command, const Parse& parse) {
    try {
        return parse();
    } catch (card::CardException& e) {
        nameCommand(e, command);
        throw;
    }
}

} // namespace iso7816
} // namespace host

#endif
