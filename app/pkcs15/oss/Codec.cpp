#include "app/pkcs15/oss/Codec.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"

#include <cryptopp/queue.h>

#include <cctype>
#include <sstream>

namespace app::pkcs15::oss {

namespace {

template <class T> std::size_t decodeValue(const std::uint8_t* data, std::size_t size, T& out) {
    DerReader reader(data, size);
    // Bound the value before looking inside it.
    if (DerReader(data, size).next().totalSize > kMaxEncodedSize) {
        reader.fail(kTextTooLong, 0);
    }
    T value;
    read(reader, value);
    out = std::move(value);
    return reader.offset();
}

template <class T> Bytes encodeValue(const T& value) {
    CryptoPP::ByteQueue queue;
    write(queue, value);
    const auto size = static_cast<std::size_t>(queue.MaxRetrievable());
    if (size > kMaxEncodedSize) {
        APP_THROW_DATA(app::InvalidDataException, kTextTooLong, size);
    }
    Bytes encoded(size);
    queue.Get(encoded.data(), encoded.size());
    return encoded;
}

[[noreturn]] void invalidOid() {
    APP_THROW(app::InvalidDataException, kTextInvalid);
}

std::uint64_t parseArc(std::istringstream& text) {
    std::string arc;
    std::getline(text, arc, '.');
    if (arc.empty() || arc.size() > 18 || (arc.size() > 1 && arc[0] == '0')) {
        invalidOid();
    }
    for (char digit : arc) {
        if (std::isdigit(static_cast<unsigned char>(digit)) == 0) {
            invalidOid();
        }
    }
    return std::stoull(arc);
}

void appendBase128(Bytes& out, std::uint64_t arc) {
    std::uint8_t groups[10];
    std::size_t count = 0;
    do {
        groups[count++] = static_cast<std::uint8_t>(arc & 0x7F);
        arc >>= 7;
    } while (arc != 0);
    while (count > 1) {
        out.push_back(static_cast<std::uint8_t>(groups[--count] | 0x80));
    }
    out.push_back(groups[0]);
}

} // namespace

#define P15_OSS_CODEC(Type)                                                                        \
    std::size_t decode(const std::uint8_t* data, std::size_t size, Type& out) {                    \
        return decodeValue(data, size, out);                                                       \
    }                                                                                              \
    Bytes encode(const Type& value) {                                                              \
        return encodeValue(value);                                                                 \
    }

P15_OSS_CODEC_TYPES(P15_OSS_CODEC)

#undef P15_OSS_CODEC

// The first two arcs share one subidentifier (40 * first + second).
std::string oidToText(const Bytes& oid) {
    if (oid.empty() || (oid.back() & 0x80) != 0) {
        invalidOid();
    }
    std::string text;
    std::uint64_t arc = 0;
    for (std::uint8_t octet : oid) {
        if (arc > (UINT64_MAX >> 7)) {
            invalidOid();
        }
        arc = (arc << 7) | (octet & 0x7F);
        if ((octet & 0x80) != 0) {
            continue;
        }
        if (text.empty()) {
            const std::uint64_t first = arc < 80 ? arc / 40 : 2;
            text = std::to_string(first) + '.' + std::to_string(arc - 40 * first);
        } else {
            text += '.' + std::to_string(arc);
        }
        arc = 0;
    }
    return text;
}

Bytes oidFromText(const std::string& text) {
    std::istringstream arcs(text);
    const std::uint64_t first = parseArc(arcs);
    if (arcs.eof()) {
        invalidOid();
    }
    const std::uint64_t second = parseArc(arcs);
    if (first > 2 || (first < 2 && second >= 40)) {
        invalidOid();
    }
    Bytes oid;
    appendBase128(oid, first * 40 + second);
    while (!arcs.eof()) {
        appendBase128(oid, parseArc(arcs));
    }
    return oid;
}

} // namespace app::pkcs15::oss
