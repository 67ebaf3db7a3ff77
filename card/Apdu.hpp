#ifndef CARD_APDU_HPP
#define CARD_APDU_HPP

#include "mw/ByteBuffer.hpp"

namespace card {

// A short command APDU (ISO/IEC 7816-4) kept as its raw bytes:
// CLA INS P1 P2 [Lc data] [Le]. Cases are numbered from 0: getCase() gives
// 0, 1, 2, 3 for ISO cases 1 to 4 and -1 for a malformed command.
class Apdu {
public:
    // Case 3: CLA INS P1 P2 Lc data, with Lc the low 8 bits of the data
    // length. Lc is written even for empty data.
    Apdu(unsigned char cla, unsigned char ins, unsigned char p1, unsigned char p2,
         const mw::ByteBuffer& data);
    // Case 1: the four header bytes only.
    Apdu(unsigned char cla, unsigned char ins, unsigned char p1, unsigned char p2);
    // Any command as received, possibly malformed.
    explicit Apdu(const mw::ByteBuffer& bytes);

    virtual ~Apdu();
    virtual int getCase() const;
    // The Lc byte for cases 3 and 4, otherwise -1.
    virtual int getLc() const;
    // A copy of the command data; empty when there is no Lc.
    virtual mw::ByteBuffer getData() const;
    // The Le byte for cases 2 and 4, otherwise -1.
    virtual int getLe() const;
    // Overwrites Le when there is one, otherwise appends it.
    virtual void setLe(unsigned char le);

    const mw::ByteBuffer& bytes() const { return bytes_; }

private:
    mw::ByteBuffer bytes_;
};

// SW1SW2 of a response (the last two bytes); throws card::InvalidDataException
// when the response is shorter than a status word.
unsigned short statusWord(const mw::ByteBuffer& response);

} // namespace card

#endif
