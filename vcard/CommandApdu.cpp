#include "vcard/CommandApdu.hpp"

#include "vcard/StatusWord.hpp"

namespace vcard {

namespace {

std::size_t shortLe(std::uint8_t le) {
    return le == 0 ? 256 : le;
}

std::size_t extendedLe(std::uint8_t high, std::uint8_t low) {
    std::size_t le = static_cast<std::size_t>(high) << 8 | low;
    return le == 0 ? 65536 : le;
}

void parseShortBody(const Bytes& raw, CommandApdu& apdu) {
    const std::size_t n = raw.size();
    const std::size_t lc = raw[4];
    if (n == 5) {
        apdu.ne = shortLe(raw[4]);
        apdu.hasLe = true;
        return;
    }
    if (lc == 0 || (n != 5 + lc && n != 6 + lc))
        throw CardError(sw::wrongLength);
    apdu.data.assign(raw.begin() + 5, raw.begin() + 5 + lc);
    if (n == 6 + lc) {
        apdu.ne = shortLe(raw.back());
        apdu.hasLe = true;
    }
}

void parseExtendedBody(const Bytes& raw, CommandApdu& apdu) {
    apdu.extended = true;
    const std::size_t n = raw.size();
    if (n == 7) {
        apdu.ne = extendedLe(raw[5], raw[6]);
        apdu.hasLe = true;
        return;
    }
    const std::size_t lc = static_cast<std::size_t>(raw[5]) << 8 | raw[6];
    if (lc == 0 || (n != 7 + lc && n != 9 + lc))
        throw CardError(sw::wrongLength);
    apdu.data.assign(raw.begin() + 7, raw.begin() + 7 + lc);
    if (n == 9 + lc) {
        apdu.ne = extendedLe(raw[n - 2], raw[n - 1]);
        apdu.hasLe = true;
    }
}

} // namespace

CommandApdu CommandApdu::parse(const Bytes& raw) {
    if (raw.size() < 4)
        throw CardError(sw::wrongLength);
    CommandApdu apdu;
    apdu.cla = raw[0];
    apdu.ins = raw[1];
    apdu.p1 = raw[2];
    apdu.p2 = raw[3];
    if (raw.size() == 4)
        return apdu;
    // A 0 in byte 4 of a longer command opens an extended length field.
    if (raw.size() >= 7 && raw[4] == 0)
        parseExtendedBody(raw, apdu);
    else
        parseShortBody(raw, apdu);
    return apdu;
}

CommandApdu& CommandApdu::operator=(const CommandApdu& other) {
    if (this != &other)
        *this = CommandApdu(other);
    return *this;
}

CommandApdu& CommandApdu::operator=(CommandApdu&& other) {
    if (this != &other) {
        wipe(data);
        data = std::move(other.data);
        cla = other.cla;
        ins = other.ins;
        p1 = other.p1;
        p2 = other.p2;
        ne = other.ne;
        hasLe = other.hasLe;
        extended = other.extended;
    }
    return *this;
}

void CommandApdu::appendData(const Bytes& more) {
    Bytes joined;
    joined.reserve(data.size() + more.size());
    joined.insert(joined.end(), data.begin(), data.end());
    joined.insert(joined.end(), more.begin(), more.end());
    wipe(data);
    data = std::move(joined);
}

} // namespace vcard
