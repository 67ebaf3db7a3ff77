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
    value.reference = readReference(reader);
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
        value.algRef = readReference(reader);
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

P15_OSS_SEQUENCE_READ_WRITE(TokenInfo)

void readFields(DerReader& reader, TokenInfo& value) {
    value.version = readInteger(reader);
    if (reader.nextIs(tag::octetString)) {
        value.serialNumber = readOctetString(reader);
    }
    if (reader.nextIsLabel()) {
        value.manufacturerID = readLabel(reader, value.manufacturerIDEncoding);
    }
    readOptionalText(reader, tag::context(0), value.label);
    value.tokenflags = readBitString(reader);
    if (reader.nextIs(tag::sequence)) {
        value.seInfo = readSequenceOf<SecurityEnvironmentInfo>(reader);
    }
    if (reader.nextIs(tag::contextConstructed(1))) {
        value.recordInfo.emplace();
        readSequence(reader, *value.recordInfo, tag::contextConstructed(1));
    }
    if (reader.nextIs(tag::contextConstructed(2))) {
        value.supportedAlgorithms =
            readSequenceOf<AlgorithmInfo>(reader, tag::contextConstructed(2));
    }
    readOptionalText(reader, tag::context(3), value.issuerId);
    readOptionalText(reader, tag::context(4), value.holderId);
    if (reader.nextIs(tag::contextConstructed(5))) {
        // A tag on a CHOICE: LastUpdate keeps its own TLV inside.
        DerReader lastUpdate = reader.enter(reader.next());
        value.lastUpdate.emplace();
        read(lastUpdate, *value.lastUpdate);
        lastUpdate.expectEnd();
    }
    readOptionalText(reader, tag::printableString, value.preferredLanguage);
}

void writeFields(Sink& sink, const TokenInfo& value) {
    writeInteger(sink, value.version);
    if (value.serialNumber) {
        writeOctetString(sink, *value.serialNumber);
    }
    if (value.manufacturerID) {
        writeLabel(sink, *value.manufacturerID, value.manufacturerIDEncoding);
    }
    writeOptionalText(sink, tag::context(0), value.label);
    writeBitString(sink, value.tokenflags);
    if (value.seInfo) {
        writeSequenceOf(sink, *value.seInfo);
    }
    if (value.recordInfo) {
        writeConstructed(sink, tag::contextConstructed(1), [&](Sink& record) {
            writeFieldsKeepingUnknown(record, *value.recordInfo);
        });
    }
    if (value.supportedAlgorithms) {
        writeSequenceOf(sink, *value.supportedAlgorithms, tag::contextConstructed(2));
    }
    writeOptionalText(sink, tag::context(3), value.issuerId);
    writeOptionalText(sink, tag::context(4), value.holderId);
    if (value.lastUpdate) {
        writeConstructed(sink, tag::contextConstructed(5),
                         [&](Sink& lastUpdate) { write(lastUpdate, *value.lastUpdate); });
    }
    writeOptionalText(sink, tag::printableString, value.preferredLanguage);
}

// The record's data objects are taken in any order: EF(DIR) records are
// ISO 7816-4 templates, and cards do not all keep the declared order. Data
// objects it does not know, and repeats of those it knows, are kept and
// written back after the known ones (order carries no meaning in a template).
void read(DerReader& reader, DIRRecord& value) {
    const Tlv record = reader.expect(tag::applicationConstructed(1));
    DerReader content = reader.enter(record);
    value = DIRRecord{};
    bool hasAid = false;
    bool hasPath = false;
    while (!content.atEnd()) {
        const std::uint32_t found = content.peekTag();
        if (found == tag::application(15) && !hasAid) {
            value.aid = readOctetString(content, tag::application(15));
            hasAid = true;
        } else if (found == tag::application(16) && !value.label) {
            value.label = readText(content, tag::application(16));
        } else if (found == tag::application(17) && !hasPath) {
            value.path = readOctetString(content, tag::application(17));
            hasPath = true;
        } else if (found == tag::applicationConstructed(19) && !value.ddo) {
            value.ddo = readRaw(content);
        } else {
            value.unknownComponents.push_back(readRaw(content));
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
        for (const Bytes& tlv : value.unknownComponents) {
            writeRaw(content, tlv);
        }
    });
}

} // namespace app::pkcs15::oss
