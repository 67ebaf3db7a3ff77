#include "vcard/Tlv.hpp"

#include "vcard/StatusWord.hpp"

namespace vcard {

namespace {

class Reader {
public:
    explicit Reader(const Bytes& data)
        : data_(data) {}
    bool atEnd() const { return pos_ == data_.size(); }
    std::uint8_t next() {
        if (atEnd())
            throw CardError(sw::wrongData);
        return data_[pos_++];
    }
    Bytes take(std::size_t n) {
        if (data_.size() - pos_ < n)
            throw CardError(sw::wrongData);
        Bytes out(data_.begin() + pos_, data_.begin() + pos_ + n);
        pos_ += n;
        return out;
    }

private:
    const Bytes& data_;
    std::size_t pos_ = 0;
};

std::uint16_t readTag(Reader& in) {
    std::uint16_t tag = in.next();
    if ((tag & 0x1F) == 0x1F)
        tag = static_cast<std::uint16_t>(tag << 8 | in.next());
    return tag;
}

std::size_t readLength(Reader& in) {
    std::uint8_t first = in.next();
    if (first < 0x80)
        return first;
    if (first == 0x81)
        return in.next();
    if (first == 0x82) {
        std::size_t high = in.next();
        return high << 8 | in.next();
    }
    throw CardError(sw::wrongData);
}

} // namespace

std::vector<Tlv> parseTlvs(const Bytes& data) {
    std::vector<Tlv> tlvs;
    Reader in(data);
    while (!in.atEnd()) {
        std::uint16_t tag = readTag(in);
        std::size_t length = readLength(in);
        tlvs.push_back({tag, in.take(length)});
    }
    return tlvs;
}

const Bytes* findTlv(const std::vector<Tlv>& tlvs, std::uint16_t tag) {
    for (const Tlv& tlv : tlvs)
        if (tlv.tag == tag)
            return &tlv.value;
    return nullptr;
}

void appendTlv(Bytes& out, std::uint16_t tag, const Bytes& value) {
    if (tag > 0xFF)
        out.push_back(static_cast<std::uint8_t>(tag >> 8));
    out.push_back(static_cast<std::uint8_t>(tag));
    std::size_t n = value.size();
    if (n >= 0x100) {
        out.insert(out.end(),
                   {0x82, static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)});
    } else if (n >= 0x80) {
        out.insert(out.end(), {0x81, static_cast<std::uint8_t>(n)});
    } else {
        out.push_back(static_cast<std::uint8_t>(n));
    }
    out.insert(out.end(), value.begin(), value.end());
}

} // namespace vcard
