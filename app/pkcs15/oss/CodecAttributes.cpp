// Paths, object values, security conditions and the attribute SEQUENCEs.
#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"

namespace app::pkcs15::oss {

namespace {

template <class T>
void readOptionalRaw(DerReader& reader, std::uint32_t expected, boost::optional<T>& out) {
    if (reader.nextIs(expected)) {
        out = readRaw(reader);
    }
}

void writeOptionalRaw(Sink& sink, const boost::optional<Bytes>& raw) {
    if (raw) {
        writeRaw(sink, *raw);
    }
}

bool isUrlTag(std::uint32_t found) {
    return found == tag::printableString || found == tag::ia5String ||
           found == tag::contextConstructed(3);
}

// The RSA key attributes of private and public keys share one layout.
template <class T> void readRsaKeyFields(DerReader& reader, T& value) {
    read(reader, value.value);
    value.modulusLength = readInteger(reader);
    if (reader.nextIs(tag::integer) || reader.nextIs(tag::sequence)) {
        value.keyInfo = readRaw(reader);
    }
}

template <class T> void writeRsaKeyFields(Sink& sink, const T& value) {
    write(sink, value.value);
    writeInteger(sink, value.modulusLength);
    writeOptionalRaw(sink, value.keyInfo);
}

// Subject-name style attributes: a Name, then one [0] component.
template <class T>
void readNameFields(DerReader& reader, T& value, boost::optional<Bytes> T::*tagged) {
    readOptionalRaw(reader, tag::sequence, value.subjectName);
    readOptionalRaw(reader, tag::contextConstructed(0), value.*tagged);
}

template <class T>
void writeNameFields(Sink& sink, const T& value, const boost::optional<Bytes> T::*tagged) {
    writeOptionalRaw(sink, value.subjectName);
    writeOptionalRaw(sink, value.*tagged);
}

// Depth of conditions written so far; a value built in memory is bounded
// like one read from a card.
void writeCondition(Sink& sink, const SecurityCondition& value, unsigned depth);

void writeOperands(Sink& sink, const SecurityCondition& value, std::uint32_t constructedTag,
                   unsigned depth) {
    writeConstructed(sink, constructedTag, [&](Sink& content) {
        for (const SecurityCondition& operand : value.operands) {
            writeCondition(content, operand, depth + 1);
        }
    });
}

void writeCondition(Sink& sink, const SecurityCondition& value, unsigned depth) {
    if (depth > kMaxNesting) {
        APP_THROW_DATA(app::InvalidDataException, kTextTooDeep, depth);
    }
    switch (value.choice) {
    case SecurityCondition::authId:
        writeOctetString(sink, value.authIdValue);
        break;
    case SecurityCondition::notCondition:
        if (value.operands.size() != 1) {
            APP_THROW(app::InvalidDataException, kTextInvalid);
        }
        writeOperands(sink, value, tag::contextConstructed(0), depth);
        break;
    case SecurityCondition::andCondition:
        writeOperands(sink, value, tag::contextConstructed(1), depth);
        break;
    case SecurityCondition::orCondition:
        writeOperands(sink, value, tag::contextConstructed(2), depth);
        break;
    case SecurityCondition::always:
        writeNull(sink);
        break;
    default:
        writeRaw(sink, value.raw);
    }
}

void readOperands(DerReader& reader, SecurityCondition& value) {
    DerReader content = reader.enter(reader.next());
    while (!content.atEnd()) {
        value.operands.emplace_back();
        read(content, value.operands.back());
    }
}

} // namespace

bool isObjectValueTag(std::uint32_t found) {
    return found == tag::sequence || isUrlTag(found) || isContextSpecific(found);
}

P15_OSS_SEQUENCE_READ_WRITE(Path)

void readFields(DerReader& reader, Path& value) {
    value.path = readOctetString(reader);
    if (reader.nextIs(tag::integer)) {
        value.index = readInteger(reader);
    }
    if (reader.nextIs(tag::context(0))) {
        value.length = readInteger(reader, tag::context(0));
    }
}

void writeFields(Sink& sink, const Path& value) {
    writeOctetString(sink, value.path);
    if (value.index) {
        writeInteger(sink, *value.index);
    }
    if (value.length) {
        writeInteger(sink, *value.length, tag::context(0));
    }
}

void read(DerReader& reader, ReferencedValue& value) {
    value = ReferencedValue{};
    const std::uint32_t found = reader.peekTag();
    if (found == tag::sequence) {
        read(reader, value.pathValue);
    } else if (isUrlTag(found)) {
        value.choice = ReferencedValue::url;
        value.raw = readRaw(reader);
    } else {
        reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
    }
}

void write(Sink& sink, const ReferencedValue& value) {
    if (value.choice == ReferencedValue::path) {
        write(sink, value.pathValue);
    } else {
        writeRaw(sink, value.raw);
    }
}

void read(DerReader& reader, ObjectValue& value) {
    value = ObjectValue{};
    const std::uint32_t found = reader.peekTag();
    if (found == tag::sequence || isUrlTag(found)) {
        read(reader, value.indirectValue);
        return;
    }
    if (!isContextSpecific(found)) {
        reader.fail(reader.atEnd() ? kTextMissing : kTextUnexpectedTag);
    }
    switch (found) {
    case tag::contextConstructed(0):
        value.choice = ObjectValue::direct;
        break;
    case tag::contextConstructed(1):
        value.choice = ObjectValue::indirectProtected;
        break;
    case tag::contextConstructed(2):
        value.choice = ObjectValue::directProtected;
        break;
    default:
        value.choice = ObjectValue::unknown;
    }
    value.raw = readRaw(reader);
}

void write(Sink& sink, const ObjectValue& value) {
    if (value.choice == ObjectValue::indirect) {
        write(sink, value.indirectValue);
    } else {
        writeRaw(sink, value.raw);
    }
}

void read(DerReader& reader, SecurityCondition& value) {
    value = SecurityCondition{};
    switch (reader.peekTag()) {
    case tag::octetString:
        value.authIdValue = readOctetString(reader);
        return;
    case tag::contextConstructed(0):
        value.choice = SecurityCondition::notCondition;
        readOperands(reader, value);
        if (value.operands.size() != 1) {
            reader.fail(kTextInvalid);
        }
        return;
    case tag::contextConstructed(1):
        value.choice = SecurityCondition::andCondition;
        readOperands(reader, value);
        return;
    case tag::contextConstructed(2):
        value.choice = SecurityCondition::orCondition;
        readOperands(reader, value);
        return;
    case tag::null:
        value.choice = SecurityCondition::always;
        readNull(reader);
        return;
    default:
        if (reader.atEnd()) {
            reader.fail(kTextMissing);
        }
        value.choice = SecurityCondition::unknown;
        value.raw = readRaw(reader);
    }
}

void write(Sink& sink, const SecurityCondition& value) {
    writeCondition(sink, value, 0);
}

P15_OSS_SEQUENCE_READ_WRITE(AccessControlRule)

void readFields(DerReader& reader, AccessControlRule& value) {
    value.accessMode = readBitString(reader);
    read(reader, value.securityCondition);
}

void writeFields(Sink& sink, const AccessControlRule& value) {
    writeBitString(sink, value.accessMode);
    write(sink, value.securityCondition);
}

P15_OSS_SEQUENCE_READ_WRITE(CommonObjectAttributes)

void readFields(DerReader& reader, CommonObjectAttributes& value) {
    if (reader.nextIsLabel()) {
        value.label = readLabel(reader, value.labelEncoding);
    }
    if (reader.nextIs(tag::bitString)) {
        value.flags = readBitString(reader);
    }
    if (reader.nextIs(tag::octetString)) {
        value.authId = readOctetString(reader);
    }
    if (reader.nextIs(tag::integer)) {
        value.userConsent = readInteger(reader);
    }
    if (reader.nextIs(tag::sequence)) {
        value.accessControlRules = readSequenceOf<AccessControlRule>(reader);
    }
}

void writeFields(Sink& sink, const CommonObjectAttributes& value) {
    if (value.label) {
        writeLabel(sink, *value.label, value.labelEncoding);
    }
    if (value.flags) {
        writeBitString(sink, *value.flags);
    }
    if (value.authId) {
        writeOctetString(sink, *value.authId);
    }
    if (value.userConsent) {
        writeInteger(sink, *value.userConsent);
    }
    if (value.accessControlRules) {
        writeSequenceOf(sink, *value.accessControlRules);
    }
}

P15_OSS_SEQUENCE_READ_WRITE(CommonKeyAttributes)

void readFields(DerReader& reader, CommonKeyAttributes& value) {
    value.iD = readOctetString(reader);
    value.usage = readBitString(reader);
    if (reader.nextIs(tag::boolean)) {
        value.native = readBoolean(reader);
    }
    if (reader.nextIs(tag::bitString)) {
        value.accessFlags = readBitString(reader);
    }
    if (reader.nextIs(tag::integer)) {
        value.keyReference = readReference(reader);
    }
    if (reader.nextIs(tag::generalizedTime)) {
        value.startDate = readTime(reader);
    }
    if (reader.nextIs(tag::context(0))) {
        value.endDate = readTime(reader, tag::context(0));
    }
    if (reader.nextIs(tag::contextConstructed(1))) {
        DerReader references = reader.enter(reader.expect(tag::contextConstructed(1)));
        value.algReference.emplace();
        while (!references.atEnd()) {
            value.algReference->push_back(readReference(references));
        }
    }
}

void writeFields(Sink& sink, const CommonKeyAttributes& value) {
    writeOctetString(sink, value.iD);
    writeBitString(sink, value.usage);
    if (value.native) {
        writeBoolean(sink, *value.native);
    }
    if (value.accessFlags) {
        writeBitString(sink, *value.accessFlags);
    }
    if (value.keyReference) {
        writeInteger(sink, *value.keyReference);
    }
    if (value.startDate) {
        writeText(sink, *value.startDate, tag::generalizedTime);
    }
    if (value.endDate) {
        writeText(sink, *value.endDate, tag::context(0));
    }
    if (value.algReference) {
        writeConstructed(sink, tag::contextConstructed(1), [&](Sink& references) {
            for (const Integer reference : *value.algReference) {
                writeInteger(references, reference);
            }
        });
    }
}

P15_OSS_SEQUENCE_READ_WRITE(CommonPrivateKeyAttributes)
void readFields(DerReader& reader, CommonPrivateKeyAttributes& value) {
    readNameFields(reader, value, &CommonPrivateKeyAttributes::keyIdentifiers);
}
void writeFields(Sink& sink, const CommonPrivateKeyAttributes& value) {
    writeNameFields(sink, value, &CommonPrivateKeyAttributes::keyIdentifiers);
}

P15_OSS_SEQUENCE_READ_WRITE(CommonPublicKeyAttributes)
void readFields(DerReader& reader, CommonPublicKeyAttributes& value) {
    readNameFields(reader, value, &CommonPublicKeyAttributes::trustedUsage);
}
void writeFields(Sink& sink, const CommonPublicKeyAttributes& value) {
    writeNameFields(sink, value, &CommonPublicKeyAttributes::trustedUsage);
}

P15_OSS_SEQUENCE_READ_WRITE(CommonCertificateAttributes)

void readFields(DerReader& reader, CommonCertificateAttributes& value) {
    value.iD = readOctetString(reader);
    if (reader.nextIs(tag::boolean)) {
        value.authority = readBoolean(reader);
    }
    readOptionalRaw(reader, tag::sequence, value.identifier);
    readOptionalRaw(reader, tag::contextConstructed(0), value.certHash);
    readOptionalRaw(reader, tag::contextConstructed(1), value.trustedUsage);
    readOptionalRaw(reader, tag::contextConstructed(2), value.identifiers);
    if (reader.nextIs(tag::context(3))) {
        value.implicitTrust = readBoolean(reader, tag::context(3));
    }
}

void writeFields(Sink& sink, const CommonCertificateAttributes& value) {
    writeOctetString(sink, value.iD);
    if (value.authority) {
        writeBoolean(sink, *value.authority);
    }
    writeOptionalRaw(sink, value.identifier);
    writeOptionalRaw(sink, value.certHash);
    writeOptionalRaw(sink, value.trustedUsage);
    writeOptionalRaw(sink, value.identifiers);
    if (value.implicitTrust) {
        writeBoolean(sink, *value.implicitTrust, tag::context(3));
    }
}

P15_OSS_SEQUENCE_READ_WRITE(CommonDataObjectAttributes)

void readFields(DerReader& reader, CommonDataObjectAttributes& value) {
    if (reader.nextIsLabel()) {
        value.applicationName = readLabel(reader, value.applicationNameEncoding);
    }
    if (reader.nextIs(tag::oid)) {
        value.applicationOID = readOid(reader);
    }
}

void writeFields(Sink& sink, const CommonDataObjectAttributes& value) {
    if (value.applicationName) {
        writeLabel(sink, *value.applicationName, value.applicationNameEncoding);
    }
    if (value.applicationOID) {
        writeOid(sink, *value.applicationOID);
    }
}

P15_OSS_SEQUENCE_READ_WRITE(CommonAuthenticationObjectAttributes)
void readFields(DerReader& reader, CommonAuthenticationObjectAttributes& value) {
    value.authId = readOctetString(reader);
}
void writeFields(Sink& sink, const CommonAuthenticationObjectAttributes& value) {
    writeOctetString(sink, value.authId);
}

P15_OSS_SEQUENCE_READ_WRITE(PrivateRSAKeyAttributes)
void readFields(DerReader& reader, PrivateRSAKeyAttributes& value) {
    readRsaKeyFields(reader, value);
}
void writeFields(Sink& sink, const PrivateRSAKeyAttributes& value) {
    writeRsaKeyFields(sink, value);
}

P15_OSS_SEQUENCE_READ_WRITE(PublicRSAKeyAttributes)
void readFields(DerReader& reader, PublicRSAKeyAttributes& value) {
    readRsaKeyFields(reader, value);
}
void writeFields(Sink& sink, const PublicRSAKeyAttributes& value) {
    writeRsaKeyFields(sink, value);
}

P15_OSS_SEQUENCE_READ_WRITE(X509CertificateAttributes)

void readFields(DerReader& reader, X509CertificateAttributes& value) {
    read(reader, value.value);
    readOptionalRaw(reader, tag::sequence, value.subject);
    if (reader.nextIs(tag::contextConstructed(0))) {
        // [0] Name: a tag on a CHOICE, so the Name keeps its own TLV inside.
        DerReader issuer = reader.enter(reader.next());
        value.issuer = issuer.expect(tag::sequence).bytes();
        issuer.expectEnd();
    }
    if (reader.nextIs(tag::integer)) {
        const Tlv serial = reader.next();
        if (serial.contentSize == 0) {
            reader.fail(kTextInvalid, serial.offset);
        }
        value.serialNumber = serial.contentBytes();
    }
}

void writeFields(Sink& sink, const X509CertificateAttributes& value) {
    write(sink, value.value);
    writeOptionalRaw(sink, value.subject);
    if (value.issuer) {
        writeConstructed(sink, tag::contextConstructed(0),
                         [&](Sink& issuer) { writeRaw(issuer, *value.issuer); });
    }
    if (value.serialNumber) {
        if (value.serialNumber->empty()) {
            APP_THROW(app::InvalidDataException, kTextInvalid);
        }
        writeOctetString(sink, *value.serialNumber, tag::integer);
    }
}

P15_OSS_SEQUENCE_READ_WRITE(PinAttributes)

void readFields(DerReader& reader, PinAttributes& value) {
    value.pinFlags = readBitString(reader);
    value.pinType = readInteger(reader, tag::enumerated);
    value.minLength = readInteger(reader);
    value.storedLength = readInteger(reader);
    if (reader.nextIs(tag::integer)) {
        value.maxLength = readInteger(reader);
    }
    if (reader.nextIs(tag::context(0))) {
        value.pinReference = readReference(reader, tag::context(0));
    }
    if (reader.nextIs(tag::octetString)) {
        value.padChar = readOctetString(reader);
    }
    if (reader.nextIs(tag::generalizedTime)) {
        value.lastPinChange = readTime(reader);
    }
    if (reader.nextIs(tag::sequence)) {
        value.path.emplace();
        read(reader, *value.path);
    }
}

void writeFields(Sink& sink, const PinAttributes& value) {
    writeBitString(sink, value.pinFlags);
    writeInteger(sink, value.pinType, tag::enumerated);
    writeInteger(sink, value.minLength);
    writeInteger(sink, value.storedLength);
    if (value.maxLength) {
        writeInteger(sink, *value.maxLength);
    }
    if (value.pinReference) {
        writeInteger(sink, *value.pinReference, tag::context(0));
    }
    if (value.padChar) {
        writeOctetString(sink, *value.padChar);
    }
    if (value.lastPinChange) {
        writeText(sink, *value.lastPinChange, tag::generalizedTime);
    }
    if (value.path) {
        write(sink, *value.path);
    }
}

} // namespace app::pkcs15::oss
