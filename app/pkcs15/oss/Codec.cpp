#include "app/pkcs15/oss/Codec.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"
#include "mw/ObjectIdentifier.hpp"

#include <cryptopp/queue.h>

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

// The text conversion is the foundation's; its failures are the codec's.
template <class Convert> auto convertOid(Convert convert) {
    try {
        return convert();
    } catch (const mw::IllegalArgumentException&) {
        APP_THROW(app::InvalidDataException, kTextInvalid);
    }
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

std::string oidToText(const Bytes& oid) {
    return convertOid([&] { return mw::objectIdentifierText(oid.data(), oid.size()); });
}

Bytes oidFromText(const std::string& text) {
    return convertOid([&] { return mw::objectIdentifierFromText(text); });
}

} // namespace app::pkcs15::oss
