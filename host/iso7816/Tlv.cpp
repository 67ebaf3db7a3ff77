#include "host/iso7816/Tlv.hpp"

#include "card/CardException.hpp"
#include "mw/Exception.hpp"

namespace host {
namespace iso7816 {

namespace {

const char* const malformedTlv = "malformed TLV data from the card";

[[noreturn]] void throwMalformed() {
    CARD_THROW(card::InvalidDataException() << card::ErrorText(malformedTlv));
}

} // namespace

TlvReader::TlvReader(const mw::ByteBuffer& data, std::size_t begin, std::size_t end)
    : data_(data)
    , position_(begin)
    , end_(end) {
    if (end > data.size() || begin > end) {
        throwMalformed();
    }
}

unsigned char TlvReader::byte() {
    if (position_ >= end_) {
        throwMalformed();
    }
    return data_.get(position_++);
}

Tlv TlvReader::next() {
    Tlv tlv;
    unsigned char first = byte();
    tlv.tag = first;
    if ((first & 0x1F) == 0x1F) {
        // Multi-byte tag: at most two subsequent bytes, the last without bit 8.
        unsigned char subsequent = 0;
        int count = 0;
        do {
            if (++count > 2) {
                throwMalformed();
            }
            subsequent = byte();
            tlv.tag = (tlv.tag << 8) | subsequent;
        } while (subsequent & 0x80);
    }
    unsigned char lengthByte = byte();
    if (lengthByte < 0x80) {
        tlv.length = lengthByte;
    } else if (lengthByte == 0x81 || lengthByte == 0x82) {
        for (int i = lengthByte & 0x7F; i > 0; --i) {
            tlv.length = (tlv.length << 8) | byte();
        }
    } else {
        throwMalformed();
    }
    tlv.valueOffset = position_;
    if (tlv.length > end_ - position_) {
        throwMalformed();
    }
    position_ += tlv.length;
    return tlv;
}

std::optional<Tlv> TlvReader::find(unsigned int tag) {
    while (!atEnd()) {
        Tlv tlv = next();
        if (tlv.tag == tag) {
            return tlv;
        }
    }
    return std::nullopt;
}

Tlv expectTlv(const mw::ByteBuffer& data, unsigned int tag) {
    TlvReader reader(data);
    Tlv tlv = reader.next();
    if (tlv.tag != tag) {
        throwMalformed();
    }
    return tlv;
}

mw::ByteBuffer tlvValue(const mw::ByteBuffer& data, const Tlv& tlv) {
    return data.get(tlv.valueOffset, tlv.length);
}

void appendTag(mw::ByteBuffer& out, unsigned int tag) {
    if (tag > 0xFFFF) {
        out.append(static_cast<unsigned char>(tag >> 16));
    }
    if (tag > 0xFF) {
        out.append(static_cast<unsigned char>(tag >> 8));
    }
    out.append(static_cast<unsigned char>(tag));
}

void appendLength(mw::ByteBuffer& out, std::size_t length) {
    if (length > 0xFFFF) {
        MW_THROW(mw::IllegalArgumentException, "TLV value longer than 65535 bytes");
    }
    if (length < 0x80) {
        out.append(static_cast<unsigned char>(length));
    } else if (length <= 0xFF) {
        out.append({0x81, static_cast<unsigned char>(length)});
    } else {
        out.append(
            {0x82, static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)});
    }
}

void appendTlv(mw::ByteBuffer& out, unsigned int tag, const mw::ByteBuffer& value) {
    appendTag(out, tag);
    appendLength(out, value.size());
    out.append(value);
}

} // namespace iso7816
} // namespace host
