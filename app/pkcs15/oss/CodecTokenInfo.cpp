// EF(TokenInfo) and EF(DIR) records.
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/CodecDetail.hpp"

#include <array>

namespace app::pkcs15::oss {

namespace {

// The seven record lengths in tag order, [0] to [6].
template <class Record> auto recordLengths(Record& value) {
    return std::array{&value.oDFRecordLength,  &value.prKDFRecordLength, &value.puKDFRecordLength,
                      &value.sKDFRecordLength, &value.cDFRecordLength,   &value.dODFRecordLength,
                      &value.aODFRecordLength};
}

void readOptionalText(DerReader& reader, std::uint32_t expected,
                      boost::optional<std::string>& out) {
    if (reader.nextIs(expected)) {
        out = readText(reader, expected);
    }
}

void writeOptionalText(Sink& sink, std::uint32_t primitiveTag,
                       const boost::optional<std::string>& text) {
    if (text) {
        writeText(sink, *text, primitiveTag);
    }
}

} // namespace

P15_OSS_SEQUENCE_READ_WRITE(SecurityEnvironmentInfo)

void readFields(DerReader& reader, SecurityEnvironmentInfo& value) {
    value.se = readInteger(reader);
    value.owner = readOid(reader);
}

void writeFields(Sink& sink, const SecurityEnvironmentInfo& value) {
    writeInteger(sink, value.se);
    writeOid(sink, value.owner);
}

P15_OSS_SEQUENCE_READ_WRITE(RecordInfo)

void readFields(DerReader& reader, RecordInfo& value) {
    unsigned number = 0;
    for (boost::optional<Integer>* length : recordLengths(value)) {
        if (reader.nextIs(tag::context(number))) {
            *length = readInteger(reader, tag::context(number));
        }
        ++number;
    }
}

void writeFields(Sink& sink, const RecordInfo& value) {
    unsigned number = 0;
    for (const boost::optional<Integer>* length : recordLengths(value)) {
        if (*length) {
            writeInteger(sink, **length, tag::context(number));
        }
        ++number;
    }
}

P15_OSS_SEQUENCE_READ_WRITE(AlgorithmInfo)

void readFields(DerReader& reader, AlgorithmInfo& value) {
    value.reference = readInteger(reader);
    value.algorithm = readInteger(reader);
    if (reader.atEnd()) {
        reader.fail(kTextMissing);
    }
    value.parameters = readRaw(reader);
    value.supportedOperations = readBitString(reader);
    if (reader.nextIs(tag::oid)) {
        value.algId = readOid(reader);
    }
    if (reader.nextIs(tag::integer)) {
        value.algRef = readInteger(reader);
    }
}

void writeFields(Sink& sink, const AlgorithmInfo& value) {
    writeInteger(sink, value.reference);
    writeInteger(sink, value.algorithm);
    writeRaw(sink, value.parameters);
    writeBitString(sink, value.supportedOperations);
    if (value.algId) {
        writeOid(sink, *value.algId);
    }
    if (value.algRef) {
        writeInteger(sink, *value.algRef);
    }
}

void read(DerReader& reader, LastUpdate& value) {
    value = LastUpdate{};
    const std::uint32_t found = reader.peekTag();
    if (found == tag::generalizedTime) {
        value.generalizedTimeValue = readTime(reader);
        return;
    }
    if (reader.atEnd()) {
        reader.fail(kTextMissing);
    }
    const bool referenced = found == tag::sequence || found == tag::printableString ||
                            found == tag::ia5String || found == tag::contextConstructed(3);
    value.choice = referenced ? LastUpdate::referencedTime : LastUpdate::unknown;
    value.raw = readRaw(reader);
}

void write(Sink& sink, const LastUpdate& value) {
    if (value.choice == LastUpdate::generalizedTime) {
        writeText(sink, value.generalizedTimeValue, tag::generalizedTime);
    } else {
        writeRaw(sink, value.raw);
    }
}

void read(DerReader& reader, TokenInfo& value) {
    DerReader content = reader.enter(reader.expect(tag::sequence));
    value = TokenInfo{};
    value.version = readInteger(content);
    if (content.nextIs(tag::octetString)) {
        value.serialNumber = readOctetString(content);
    }
    if (isLabelTag(content.peekTag())) {
        value.manufacturerID = readLabel(content);
    }
    readOptionalText(content, tag::context(0), value.label);
    value.tokenflags = readBitString(content);
    if (content.nextIs(tag::sequence)) {
        value.seInfo = readSequenceOf<SecurityEnvironmentInfo>(content);
    }
    if (content.nextIs(tag::contextConstructed(1))) {
        value.recordInfo.emplace();
        readSequence(content, *value.recordInfo, tag::contextConstructed(1));
    }
    if (content.nextIs(tag::contextConstructed(2))) {
        value.supportedAlgorithms =
            readSequenceOf<AlgorithmInfo>(content, tag::contextConstructed(2));
    }
    readOptionalText(content, tag::context(3), value.issuerId);
    readOptionalText(content, tag::context(4), value.holderId);
    if (content.nextIs(tag::contextConstructed(5))) {
        // A tag on a CHOICE: LastUpdate keeps its own TLV inside.
        DerReader lastUpdate = content.enter(content.next());
        value.lastUpdate.emplace();
        read(lastUpdate, *value.lastUpdate);
        lastUpdate.skipRest();
    }
    readOptionalText(content, tag::printableString, value.preferredLanguage);
    content.skipRest();
}

void write(Sink& sink, const TokenInfo& value) {
    writeConstructed(sink, tag::sequence, [&](Sink& content) {
        writeInteger(content, value.version);
        if (value.serialNumber) {
            writeOctetString(content, *value.serialNumber);
        }
        writeOptionalText(content, tag::utf8String, value.manufacturerID);
        writeOptionalText(content, tag::context(0), value.label);
        writeBitString(content, value.tokenflags);
        if (value.seInfo) {
            writeSequenceOf(content, *value.seInfo);
        }
        if (value.recordInfo) {
            writeConstructed(content, tag::contextConstructed(1),
                             [&](Sink& record) { writeFields(record, *value.recordInfo); });
        }
        if (value.supportedAlgorithms) {
            writeSequenceOf(content, *value.supportedAlgorithms, tag::contextConstructed(2));
        }
        writeOptionalText(content, tag::context(3), value.issuerId);
        writeOptionalText(content, tag::context(4), value.holderId);
        if (value.lastUpdate) {
            writeConstructed(content, tag::contextConstructed(5),
                             [&](Sink& lastUpdate) { write(lastUpdate, *value.lastUpdate); });
        }
        writeOptionalText(content, tag::printableString, value.preferredLanguage);
    });
}

// The record's data objects are taken in any order: EF(DIR) records are
// ISO 7816-4 templates, and cards do not all keep the declared order.
void read(DerReader& reader, DIRRecord& value) {
    const Tlv record = reader.expect(tag::applicationConstructed(1));
    DerReader content = reader.enter(record);
    value = DIRRecord{};
    bool hasAid = false;
    bool hasPath = false;
    while (!content.atEnd()) {
        switch (content.peekTag()) {
        case tag::application(15):
            value.aid = readOctetString(content, tag::application(15));
            hasAid = true;
            break;
        case tag::application(16):
            value.label = readText(content, tag::application(16));
            break;
        case tag::application(17):
            value.path = readOctetString(content, tag::application(17));
            hasPath = true;
            break;
        case tag::applicationConstructed(19):
            value.ddo = readRaw(content);
            break;
        default:
            content.next();
        }
    }
    if (!hasAid || !hasPath) {
        reader.fail(kTextMissing, record.offset);
    }
}

void write(Sink& sink, const DIRRecord& value) {
    writeConstructed(sink, tag::applicationConstructed(1), [&](Sink& content) {
        writeOctetString(content, value.aid, tag::application(15));
        writeOptionalText(content, tag::application(16), value.label);
        writeOctetString(content, value.path, tag::application(17));
        if (value.ddo) {
            writeRaw(content, *value.ddo);
        }
    });
}

} // namespace app::pkcs15::oss
