#ifndef APP_PKCS15_OSS_CODECDETAIL_HPP
#define APP_PKCS15_OSS_CODECDETAIL_HPP

// The per-type readers and writers behind decode() and encode(). A read
// consumes exactly one TLV; a SEQUENCE type's readFields/writeFields handle
// its components alone, for the attributes that cards write with or without
// their SEQUENCE inside a context tag.

#include "app/pkcs15/oss/Asn1Types.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "app/pkcs15/oss/DerWriter.hpp"

#include <vector>

namespace app::pkcs15::oss {

#define P15_OSS_READ_WRITE(Type)                                                                   \
    void read(DerReader& reader, Type& value);                                                     \
    void write(Sink& sink, const Type& value);
#define P15_OSS_FIELDS(Type)                                                                       \
    P15_OSS_READ_WRITE(Type)                                                                       \
    void readFields(DerReader& reader, Type& value);                                               \
    void writeFields(Sink& sink, const Type& value);

P15_OSS_READ_WRITE(PKCS15Objects)
P15_OSS_READ_WRITE(PathOrObjects)
P15_OSS_READ_WRITE(PrivateKeyType)
P15_OSS_READ_WRITE(PublicKeyType)
P15_OSS_READ_WRITE(CertificateType)
P15_OSS_READ_WRITE(DataType)
P15_OSS_READ_WRITE(AuthenticationType)
P15_OSS_READ_WRITE(TokenInfo)
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

// A SEQUENCE: its components, then any unknown trailing ones skipped.
template <class T>
void readSequence(DerReader& reader, T& value, std::uint32_t expected = tag::sequence) {
    DerReader content = reader.enter(reader.expect(expected));
    value = T{};
    readFields(content, value);
    content.skipRest();
}

template <class T> void writeSequence(Sink& sink, const T& value) {
    writeConstructed(sink, tag::sequence, [&](Sink& content) { writeFields(content, value); });
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
