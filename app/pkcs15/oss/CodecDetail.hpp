#ifndef APP_PKCS15_OSS_CODECDETAIL_HPP
#define APP_PKCS15_OSS_CODECDETAIL_HPP

// The per-type readers and writers behind decode() and encode(). A read
// consumes exactly one TLV; a SEQUENCE type's readFields/writeFields handle
// its components alone, for the attributes that cards write with or without
// their SEQUENCE inside a context tag.

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "app/pkcs15/oss/DerWriter.hpp"

#include <cryptopp/queue.h>

#include <functional>
#include <vector>

namespace app::pkcs15::oss {

#define P15_OSS_READ_WRITE(Type)                                                                   \
    void read(DerReader& reader, Type& value);                                                     \
    void write(Sink& sink, const Type& value);
// A SEQUENCE type: its components alone, and the decode error of an unknown
// component before a known one.
#define P15_OSS_FIELDS(Type)                                                                       \
    P15_OSS_READ_WRITE(Type)                                                                       \
    void readFields(DerReader& reader, Type& value);                                               \
    void writeFields(Sink& sink, const Type& value);                                               \
    constexpr const char* outOfOrderText(const Type*) {                                            \
        return "ASN.1: unexpected tag before a known component of " #Type;                         \
    }

P15_OSS_READ_WRITE(PKCS15Objects)
P15_OSS_READ_WRITE(PathOrObjects)
P15_OSS_READ_WRITE(PrivateKeyType)
P15_OSS_READ_WRITE(PublicKeyType)
P15_OSS_READ_WRITE(CertificateType)
P15_OSS_READ_WRITE(DataType)
P15_OSS_READ_WRITE(AuthenticationType)
P15_OSS_FIELDS(TokenInfo)
P15_OSS_READ_WRITE(DIRRecord)
P15_OSS_READ_WRITE(ReferencedValue)
P15_OSS_READ_WRITE(ObjectValue)
P15_OSS_READ_WRITE(SecurityCondition)
P15_OSS_READ_WRITE(LastUpdate)
P15_OSS_FIELDS(Path)
P15_OSS_FIELDS(AccessControlRule)
P15_OSS_FIELDS(CommonObjectAttributes)
P15_OSS_FIELDS(CommonKeyAttributes)
P15_OSS_FIELDS(CommonPrivateKeyAttributes)
P15_OSS_FIELDS(CommonPublicKeyAttributes)
P15_OSS_FIELDS(CommonCertificateAttributes)
P15_OSS_FIELDS(CommonDataObjectAttributes)
P15_OSS_FIELDS(CommonAuthenticationObjectAttributes)
P15_OSS_FIELDS(PrivateRSAKeyAttributes)
P15_OSS_FIELDS(PublicRSAKeyAttributes)
P15_OSS_FIELDS(X509CertificateAttributes)
P15_OSS_FIELDS(PinAttributes)
P15_OSS_FIELDS(SecurityEnvironmentInfo)
P15_OSS_FIELDS(RecordInfo)
P15_OSS_FIELDS(AlgorithmInfo)

#undef P15_OSS_FIELDS
#undef P15_OSS_READ_WRITE

// Reads the components left in `reader` with `readKnown` (the known ones and
// the tail into `tail`), setting aside one at a time a component that stands
// where a known one must come (an unexpected tag, or `outOfOrder`), at most
// kMaxMisplaced of them. On success, those set aside before the last known
// component are `misplaced`, anything after it is `tail`, and the reader is at
// its end; false when setting aside does not help.
bool readAroundMisplaced(DerReader& reader, const char* outOfOrder,
                         const std::function<void(DerReader&)>& readKnown,
                         MisplacedComponents& misplaced, UnknownComponents& tail);
// `known` (the known components as written) with each misplaced component
// before the known one it stood before and `tail` after them all; throws
// kTextCannotPlace when that known component is gone.
Bytes placeComponents(const Bytes& known, const MisplacedComponents& misplaced,
                      const UnknownComponents& tail);

template <class T> void readKnownAndTail(DerReader& reader, T& value) {
    readFields(reader, value);
    value.unknownComponents = reader.readUnknownTail(outOfOrderText(&value));
}

// The components of a SEQUENCE type, and those it does not know kept: after
// the last known one, or before a known one where a card put them. A failure
// that setting components aside does not cure is reported as first found.
template <class T> void readFieldsKeepingUnknown(DerReader& reader, T& value) {
    const DerReader start = reader;
    try {
        readKnownAndTail(reader, value);
    } catch (const app::InvalidDataException&) {
        reader = start;
        const auto readKnown = [&value](DerReader& components) {
            value = T{};
            readKnownAndTail(components, value);
        };
        if (!readAroundMisplaced(reader, outOfOrderText(&value), readKnown,
                                 value.misplacedComponents, value.unknownComponents)) {
            throw;
        }
    }
}

// Reads back the content written for a value with components it does not
// know and refuses the write unless they come back unknown and unchanged: a
// change can make room for a kept component to be taken for a known one.
template <class T> void checkUnknownKept(const Bytes& content, const T& value) {
    T reread;
    DerReader reader(content.data(), content.size());
    try {
        readFieldsKeepingUnknown(reader, reread);
    } catch (const app::InvalidDataException&) {
        APP_THROW(app::InvalidDataException, kTextCannotKeep);
    }
    if (reread.unknownComponents != value.unknownComponents ||
        reread.misplacedComponents != value.misplacedComponents) {
        APP_THROW(app::InvalidDataException, kTextCannotKeep);
    }
}

// The known components, and the unknown ones in their places among them.
template <class T> void writeFieldsKeepingUnknown(Sink& sink, const T& value) {
    if (value.unknownComponents.empty() && value.misplacedComponents.empty()) {
        writeFields(sink, value);
        return;
    }
    CryptoPP::ByteQueue queue;
    writeFields(queue, value);
    Bytes known(static_cast<std::size_t>(queue.MaxRetrievable()));
    queue.Get(known.data(), known.size());
    const Bytes content =
        placeComponents(known, value.misplacedComponents, value.unknownComponents);
    checkUnknownKept(content, value);
    sink.Put(content.data(), content.size());
}

template <class T>
void readSequence(DerReader& reader, T& value, std::uint32_t expected = tag::sequence) {
    DerReader content = reader.enter(reader.expect(expected));
    value = T{};
    readFieldsKeepingUnknown(content, value);
}

template <class T> void writeSequence(Sink& sink, const T& value) {
    writeConstructed(sink, tag::sequence,
                     [&](Sink& content) { writeFieldsKeepingUnknown(content, value); });
}

template <class T>
std::vector<T> readSequenceOf(DerReader& reader, std::uint32_t expected = tag::sequence) {
    DerReader content = reader.enter(reader.expect(expected));
    std::vector<T> values;
    while (!content.atEnd()) {
        values.emplace_back();
        read(content, values.back());
    }
    return values;
}

template <class T>
void writeSequenceOf(Sink& sink, const std::vector<T>& values,
                     std::uint32_t constructedTag = tag::sequence) {
    writeConstructed(sink, constructedTag, [&](Sink& content) {
        for (const T& value : values) {
            write(content, value);
        }
    });
}

// read() and write() of a type that is a SEQUENCE of its fields.
#define P15_OSS_SEQUENCE_READ_WRITE(Type)                                                          \
    void read(DerReader& reader, Type& value) {                                                    \
        readSequence(reader, value);                                                               \
    }                                                                                              \
    void write(Sink& sink, const Type& value) {                                                    \
        writeSequence(sink, value);                                                                \
    }

// The TLV of a component kept as read.
inline Bytes readRaw(DerReader& reader) {
    return reader.next().bytes();
}

inline bool isContextSpecific(std::uint32_t found) {
    return (found & 0xC0) == 0x80;
}
// Tags an ObjectValue (and so the value component of the type attributes)
// may open with.
bool isObjectValueTag(std::uint32_t found);

} // namespace app::pkcs15::oss

#endif
