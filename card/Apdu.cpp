#include "card/Apdu.hpp"

#include "card/CardException.hpp"

namespace card {

namespace {

enum Case { case1 = 0, case2 = 1, case3 = 2, case4 = 3, malformed = -1 };

const std::size_t headerLength = 4;
const std::size_t lcOffset = 4;

bool hasLc(int apduCase) {
    return apduCase == case3 || apduCase == case4;
}
bool hasLe(int apduCase) {
    return apduCase == case2 || apduCase == case4;
}

} // namespace

Apdu::Apdu(unsigned char cla, unsigned char ins, unsigned char p1, unsigned char p2,
           const mw::ByteBuffer& data)
    : bytes_{cla, ins, p1, p2, static_cast<unsigned char>(data.size())} {
    bytes_.append(data);
}

Apdu::Apdu(unsigned char cla, unsigned char ins, unsigned char p1, unsigned char p2)
    : bytes_{cla, ins, p1, p2} {}

Apdu::Apdu(const mw::ByteBuffer& bytes)
    : bytes_(bytes) {}

Apdu::~Apdu() = default;

// The length tests run in a fixed order, so a 5-byte command is always
// case 2; fewer than 4 bytes fail on reading the Lc position.
int Apdu::getCase() const {
    const std::size_t length = bytes_.size();
    if (length == headerLength) {
        return case1;
    }
    if (length == headerLength + 1) {
        return case2;
    }
    const std::size_t lc = bytes_.get(lcOffset);
    if (length == lc + headerLength + 1) {
        return case3;
    }
    if (length == lc + headerLength + 2) {
        return case4;
    }
    return malformed;
}

int Apdu::getLc() const {
    return hasLc(getCase()) ? bytes_.get(lcOffset) : -1;
}

mw::ByteBuffer Apdu::getData() const {
    if (!hasLc(getCase())) {
        return mw::ByteBuffer();
    }
    return bytes_.get(lcOffset + 1, bytes_.get(lcOffset));
}

int Apdu::getLe() const {
    return hasLe(getCase()) ? bytes_.get(bytes_.size() - 1) : -1;
}

void Apdu::setLe(unsigned char le) {
    if (hasLe(getCase())) {
        bytes_.data()[bytes_.size() - 1] = le;
    } else {
        bytes_.append(le);
    }
}

unsigned short statusWord(const mw::ByteBuffer& response) {
    const std::size_t length = response.size();
    if (length < 2) {
        CARD_THROW(InvalidDataException() << ErrorText("response shorter than a status word")
                                          << ErrorData(static_cast<unsigned int>(length)));
    }
    return static_cast<unsigned short>(response.get(length - 2) << 8 | response.get(length - 1));
}

} // namespace card
