// The PKCS15Object frame, the object-type CHOICEs and the EF(ODF) entries.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"

#include <initializer_list>
#include <iterator>
#include <type_traits>

namespace app::pkcs15::oss {

namespace {

// Whether a lone SEQUENCE in the [0] or [1] tag, opening with `found`, can be
// the attributes' first component itself rather than the attributes' own
// SEQUENCE: a subject Name (SETs), a certificate's value Path (an OCTET
// STRING), or the ObjectValue of a data object; never for the RSA key and
// PIN attributes, whose later mandatory components would be missing.
bool mayBeFirstComponent(std::uint32_t found, const CommonPrivateKeyAttributes*) {
    return found == tag::set;
}
bool mayBeFirstComponent(std::uint32_t found, const CommonPublicKeyAttributes*) {
    return found == tag::set;
}
bool mayBeFirstComponent(std::uint32_t, const PrivateRSAKeyAttributes*) {
    return false;
}
bool mayBeFirstComponent(std::uint32_t, const PublicRSAKeyAttributes*) {
    return false;
}
bool mayBeFirstComponent(std::uint32_t found, const X509CertificateAttributes*) {
    return found == tag::octetString;
}
bool mayBeFirstComponent(std::uint32_t, const PinAttributes*) {
    return false;
}
bool mayBeFirstComponent(std::uint32_t found, const ObjectValue*) {
    return !isObjectValueTag(found);
}

// Cards write the [0] and [1] attributes either with their SEQUENCE inside the
// tag (explicit, as a tag on a parameterised type requires) or with the tag
// replacing it (implicit). The content is taken as the explicit form when it
// is one SEQUENCE that is empty or cannot be the first component itself (so
// a component a card put before the first known one does not hide the form).
// The NULL subclass attributes are kept as found, whatever their form.
template <class T> bool holdsInnerSequence(const DerReader& content) {
    if constexpr (std::is_same_v<T, NullAttributes>) {
        return false;
    } else {
        DerReader probe = content;
        if (!probe.nextIs(tag::sequence)) {
            return false;
        }
        const Tlv inner = probe.next();
        if (!probe.atEnd()) {
            return false;
        }
        const DerReader innerContent = probe.enter(inner);
        return innerContent.atEnd() ||
               !mayBeFirstComponent(innerContent.peekTag(), static_cast<const T*>(nullptr));
    }
}

// The form written for new values: a SEQUENCE type with its SEQUENCE inside
// the tag, the CHOICE and NULL with their own TLV alone.
template <class T> constexpr bool innerSequenceByDefault() {
    return !std::is_same_v<T, ObjectValue> && !std::is_same_v<T, NullAttributes>;
}

template <class T> void readAttributes(DerReader& reader, T& value) {
    if constexpr (std::is_same_v<T, ObjectValue>) {
        read(reader, value);
        reader.expectEnd();
    } else if constexpr (std::is_same_v<T, NullAttributes>) {
        while (!reader.atEnd()) {
            value.components.push_back(readRaw(reader));
        }
        if (value.components == UnknownComponents{{0x05, 0x00}}) {
            value.components.clear(); // the NULL of PKCS#15, written again as NULL
        }
    } else {
        readFieldsKeepingUnknown(reader, value);
    }
}

template <class T> void writeAttributes(Sink& sink, const T& value) {
    if constexpr (std::is_same_v<T, ObjectValue>) {
        write(sink, value);
    } else if constexpr (std::is_same_v<T, NullAttributes>) {
        if (value.components.empty()) {
            writeNull(sink);
        }
        for (const Bytes& tlv : value.components) {
            writeRaw(sink, tlv);
        }
    } else {
        writeFieldsKeepingUnknown(sink, value);
    }
}

// Returns whether the attributes came in the other form than the default one.
template <class T> bool readTaggedAttributes(DerReader& reader, std::uint32_t expected, T& value) {
    DerReader content = reader.enter(reader.expect(expected));
    value = T{};
    const bool inner = holdsInnerSequence<T>(content);
    if (inner) {
        DerReader innerContent = content.enter(content.next());
        readAttributes(innerContent, value);
    } else {
        readAttributes(content, value);
    }
    return inner != innerSequenceByDefault<T>();
}

// A reader must find the form again: attributes that kept only components it
// does not know, written with their SEQUENCE, would be read as a Name.
template <class T>
void writeTaggedAttributes(Sink& sink, std::uint32_t constructedTag, const T& value,
                           bool otherForm) {
    const bool inner = otherForm != innerSequenceByDefault<T>();
    CryptoPP::ByteQueue queue;
    if (inner) {
        writeConstructed(queue, tag::sequence,
                         [&](Sink& content) { writeAttributes(content, value); });
    } else {
        writeAttributes(queue, value);
    }
    Bytes content(static_cast<std::size_t>(queue.MaxRetrievable()));
    queue.Get(content.data(), content.size());
    if (holdsInnerSequence<T>(DerReader(content.data(), content.size())) != inner) {
        APP_THROW(app::InvalidDataException, kTextCannotKeep);
    }
    writeConstructed(sink, constructedTag,
                     [&](Sink& tagged) { tagged.Put(content.data(), content.size()); });
}

template <class C, class S, class T>
void readObject(DerReader& reader, PKCS15Object<C, S, T>& value) {
    DerReader content = reader.enter(reader.expect(tag::sequence));
    value = PKCS15Object<C, S, T>{};
    read(content, value.commonObjectAttributes);
    read(content, value.classAttributes);
    if (content.nextIs(tag::contextConstructed(0))) {
        value.subClassAttributes.emplace();
        value.subClassAttributesOtherForm =
            readTaggedAttributes(content, tag::contextConstructed(0), *value.subClassAttributes);
    }
    value.typeAttributesOtherForm =
        readTaggedAttributes(content, tag::contextConstructed(1), value.typeAttributes);
    while (!content.atEnd()) { // nothing known follows [1]
        value.unknownComponents.push_back(readRaw(content));
    }
}

template <class C, class S, class T>
void writeObject(Sink& sink, const PKCS15Object<C, S, T>& value) {
    writeConstructed(sink, tag::sequence, [&](Sink& content) {
        write(content, value.commonObjectAttributes);
        write(content, value.classAttributes);
        if (value.subClassAttributes) {
            writeTaggedAttributes(content, tag::contextConstructed(0), *value.subClassAttributes,
                                  value.subClassAttributesOtherForm);
        }
        writeTaggedAttributes(content, tag::contextConstructed(1), value.typeAttributes,
                              value.typeAttributesOtherForm);
        for (const Bytes& tlv : value.unknownComponents) {
            writeRaw(content, tlv);
        }
    });
}

// Alternatives kept raw: their tags in declaration order, numbered from
// `first`; any other context tag is an unknown extension.
template <class Choice>
void readRawAlternative(DerReader& reader, Choice& value, std::initializer_list<std::uint32_t> tags,
                        int first) {
    const std::uint32_t found = reader.peekTag();
    if (!isContextSpecific(found)) {
        reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
    }
    value.choice = Choice::unknown;
    int number = first;
    for (std::uint32_t candidate : tags) {
        if (candidate == found) {
            value.choice = number;
        }
        ++number;
    }
    value.raw = readRaw(reader);
}

// The CHOICE types whose first alternative is a PKCS15Object SEQUENCE.
template <class Choice, class Object>
void readObjectChoice(DerReader& reader, Choice& value, Object Choice::*first,
                      std::initializer_list<std::uint32_t> rawTags) {
    value = Choice{};
    if (reader.nextIs(tag::sequence)) {
        readObject(reader, value.*first);
    } else {
        readRawAlternative(reader, value, rawTags, 2);
    }
}

template <class Choice, class Object>
void writeObjectChoice(Sink& sink, const Choice& value, const Object Choice::*first) {
    if (value.choice == 1) {
        writeObject(sink, value.*first);
    } else {
        writeRaw(sink, value.raw);
    }
}

constexpr std::uint32_t kOdfTags[] = {tag::contextConstructed(0), tag::contextConstructed(1),
                                      tag::contextConstructed(4), tag::contextConstructed(7),
                                      tag::contextConstructed(8)};

} // namespace

void read(DerReader& reader, PrivateKeyType& value) {
    readObjectChoice(reader, value, &PrivateKeyType::privateRSAKeyValue,
                     {tag::contextConstructed(0), tag::contextConstructed(1),
                      tag::contextConstructed(2), tag::contextConstructed(3)});
}
void write(Sink& sink, const PrivateKeyType& value) {
    writeObjectChoice(sink, value, &PrivateKeyType::privateRSAKeyValue);
}

void read(DerReader& reader, PublicKeyType& value) {
    readObjectChoice(reader, value, &PublicKeyType::publicRSAKeyValue,
                     {tag::contextConstructed(0), tag::contextConstructed(1),
                      tag::contextConstructed(2), tag::contextConstructed(3)});
}
void write(Sink& sink, const PublicKeyType& value) {
    writeObjectChoice(sink, value, &PublicKeyType::publicRSAKeyValue);
}

void read(DerReader& reader, CertificateType& value) {
    readObjectChoice(reader, value, &CertificateType::x509CertificateValue,
                     {tag::contextConstructed(0), tag::contextConstructed(1),
                      tag::contextConstructed(2), tag::contextConstructed(3),
                      tag::contextConstructed(4), tag::contextConstructed(5)});
}
void write(Sink& sink, const CertificateType& value) {
    writeObjectChoice(sink, value, &CertificateType::x509CertificateValue);
}

void read(DerReader& reader, DataType& value) {
    readObjectChoice(reader, value, &DataType::opaqueDOValue,
                     {tag::contextConstructed(0), tag::contextConstructed(1)});
}
void write(Sink& sink, const DataType& value) {
    writeObjectChoice(sink, value, &DataType::opaqueDOValue);
}

void read(DerReader& reader, AuthenticationType& value) {
    readObjectChoice(
        reader, value, &AuthenticationType::pinValue,
        {tag::contextConstructed(0), tag::contextConstructed(1), tag::contextConstructed(2)});
}
void write(Sink& sink, const AuthenticationType& value) {
    writeObjectChoice(sink, value, &AuthenticationType::pinValue);
}

void read(DerReader& reader, PathOrObjects& value) {
    value = PathOrObjects{};
    if (reader.nextIs(tag::sequence)) {
        read(reader, value.pathValue);
    } else {
        readRawAlternative(
            reader, value,
            {tag::contextConstructed(0), tag::contextConstructed(1), tag::contextConstructed(2)},
            2);
    }
}

void write(Sink& sink, const PathOrObjects& value) {
    if (value.choice == PathOrObjects::path) {
        write(sink, value.pathValue);
    } else {
        writeRaw(sink, value.raw);
    }
}

void read(DerReader& reader, PKCS15Objects& value) {
    value = PKCS15Objects{};
    const std::uint32_t found = reader.peekTag();
    int number = 1;
    for (std::uint32_t candidate : kOdfTags) {
        if (candidate == found) {
            value.choice = number;
            // A tag on a CHOICE: the PathOrObjects keeps its own TLV inside.
            DerReader content = reader.enter(reader.next());
            read(content, value.value);
            content.expectEnd();
            return;
        }
        ++number;
    }
    reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
}

void write(Sink& sink, const PKCS15Objects& value) {
    if (value.choice < 1 || value.choice > static_cast<int>(std::size(kOdfTags))) {
        APP_THROW_DATA(app::InvalidDataException, kTextInvalid, value.choice);
    }
    writeConstructed(sink, kOdfTags[value.choice - 1],
                     [&](Sink& content) { write(content, value.value); });
}

} // namespace app::pkcs15::oss
