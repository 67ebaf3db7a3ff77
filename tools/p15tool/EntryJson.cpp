#include "tools/p15tool/EntryJson.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "tools/p15tool/FlagNames.hpp"
#include "tools/p15tool/Text.hpp"

namespace p15tool {

namespace {

const Names tokenFlags = {"readonly", "loginRequired", "prnGeneration", "eidCompliant"};
const Names operations = {"compute-checksum",
                          "compute-signature",
                          "verify-checksum",
                          "verify-signature",
                          "encipher",
                          "decipher",
                          "hash",
                          "generate-key"};

// The names of the bits set, "bit N" for those without a name.
Json flagsJson(const oss::BitString& bits, Names names) {
    Json list = Json::array();
    for (std::size_t bit = 0; bit < bits.bitCount && bit / 8 < bits.octets.size(); ++bit) {
        if (bits.octets[bit / 8] & (0x80 >> (bit % 8))) {
            list.push_back(bit < names.size() ? std::string(names.begin()[bit])
                                              : "bit " + std::to_string(bit));
        }
    }
    return list;
}

Json enumJson(oss::Integer value, Names names) {
    if (value >= 0 && static_cast<std::size_t>(value) < names.size()) {
        return names.begin()[value];
    }
    return value;
}

void putIdentifier(Json& out, const std::string& key, const oss::Bytes& id) {
    out[key] = hex(id);
    if (isPrintableAscii(id)) {
        out[key + "Text"] = std::string(id.begin(), id.end());
    }
}

template <class T> void putOptional(Json& out, const char* key, const boost::optional<T>& value) {
    if (value) {
        out[key] = *value;
    }
}

void putText(Json& out, const char* key, const boost::optional<std::string>& value) {
    if (value) {
        out[key] = displayText(*value);
    }
}

void putHex(Json& out, const char* key, const boost::optional<oss::Bytes>& value) {
    if (value) {
        out[key] = hex(*value);
    }
}

Json pathJson(const oss::Path& path) {
    Json out{{"path", hex(path.path)}};
    putOptional(out, "index", path.index);
    putOptional(out, "length", path.length);
    return out;
}

Json objectValueJson(const oss::ObjectValue& value) {
    static const char* const kinds[] = {
        "", "indirect", "direct", "indirectProtected", "directProtected", "unknown"};
    if (value.choice == oss::ObjectValue::indirect &&
        value.indirectValue.choice == oss::ReferencedValue::path) {
        return pathJson(value.indirectValue.pathValue);
    }
    const bool url = value.choice == oss::ObjectValue::indirect;
    return Json{
        {url ? "url" : kinds[value.choice], hex(url ? value.indirectValue.raw : value.raw)}};
}

std::string conditionText(const oss::SecurityCondition& condition, const PinNamer& pinName) {
    switch (condition.choice) {
    case oss::SecurityCondition::authId: {
        const std::string pin = pinName ? pinName(condition.authIdValue) : std::string();
        return "authId " + hex(condition.authIdValue) + (pin.empty() ? "" : " (" + pin + ")");
    }
    case oss::SecurityCondition::notCondition:
        return "not (" + conditionText(condition.operands.front(), pinName) + ")";
    case oss::SecurityCondition::andCondition:
    case oss::SecurityCondition::orCondition: {
        const char* joint =
            condition.choice == oss::SecurityCondition::andCondition ? " and " : " or ";
        std::string text;
        for (const oss::SecurityCondition& operand : condition.operands) {
            text += (text.empty() ? "(" : joint) + conditionText(operand, pinName);
        }
        return text + ")";
    }
    case oss::SecurityCondition::always:
        return "always";
    default:
        return "unknown " + hex(condition.raw);
    }
}

Json commonObjectJson(const oss::CommonObjectAttributes& common) {
    Json out = Json::object();
    putText(out, "label", common.label);
    if (common.flags) {
        out["flags"] = flagsJson(*common.flags, objectFlags);
    }
    putHex(out, "authId", common.authId);
    putOptional(out, "userConsent", common.userConsent);
    if (common.accessControlRules) {
        out["accessControlRules"] = accessRulesJson(*common.accessControlRules, {});
    }
    return out;
}

Json classJson(const oss::CommonKeyAttributes& key) {
    Json out;
    putIdentifier(out, "iD", key.iD);
    out["usage"] = flagsJson(key.usage, keyUsages);
    putOptional(out, "native", key.native);
    if (key.accessFlags) {
        out["accessFlags"] = flagsJson(*key.accessFlags, keyAccessFlags);
    }
    putOptional(out, "keyReference", key.keyReference);
    putOptional(out, "startDate", key.startDate);
    putOptional(out, "endDate", key.endDate);
    return out;
}

Json classJson(const oss::CommonCertificateAttributes& certificate) {
    Json out;
    putIdentifier(out, "iD", certificate.iD);
    putOptional(out, "authority", certificate.authority);
    putHex(out, "identifier", certificate.identifier);
    putHex(out, "certHash", certificate.certHash);
    putHex(out, "trustedUsage", certificate.trustedUsage);
    putHex(out, "identifiers", certificate.identifiers);
    putOptional(out, "implicitTrust", certificate.implicitTrust);
    return out;
}

Json classJson(const oss::CommonDataObjectAttributes& data) {
    Json out = Json::object();
    putText(out, "applicationName", data.applicationName);
    if (data.applicationOID) {
        out["applicationOID"] = oss::oidToText(*data.applicationOID);
    }
    return out;
}

Json classJson(const oss::CommonAuthenticationObjectAttributes& auth) {
    Json out;
    putIdentifier(out, "authId", auth.authId);
    return out;
}

Json subClassJson(const oss::CommonPrivateKeyAttributes& key) {
    Json out = Json::object();
    putHex(out, "subjectName", key.subjectName);
    putHex(out, "keyIdentifiers", key.keyIdentifiers);
    return out;
}

Json subClassJson(const oss::CommonPublicKeyAttributes& key) {
    Json out = Json::object();
    putHex(out, "subjectName", key.subjectName);
    putHex(out, "trustedUsage", key.trustedUsage);
    return out;
}

Json subClassJson(const oss::NullAttributes&) {
    return Json::object();
}

template <class RsaAttributes> Json rsaKeyJson(const RsaAttributes& key) {
    Json out{{"value", objectValueJson(key.value)}, {"modulusLength", key.modulusLength}};
    putHex(out, "keyInfo", key.keyInfo);
    return out;
}

Json typeJson(const oss::PrivateRSAKeyAttributes& key) {
    return rsaKeyJson(key);
}
Json typeJson(const oss::PublicRSAKeyAttributes& key) {
    return rsaKeyJson(key);
}

Json typeJson(const oss::X509CertificateAttributes& certificate) {
    Json out{{"value", objectValueJson(certificate.value)}};
    putHex(out, "subject", certificate.subject);
    putHex(out, "issuer", certificate.issuer);
    putHex(out, "serialNumber", certificate.serialNumber);
    return out;
}

Json typeJson(const oss::ObjectValue& value) {
    return Json{{"value", objectValueJson(value)}};
}

Json typeJson(const oss::PinAttributes& pin) {
    Json out{{"pinFlags", flagsJson(pin.pinFlags, pinFlags)},
             {"pinType", enumJson(pin.pinType, pinTypes)},
             {"minLength", pin.minLength},
             {"storedLength", pin.storedLength}};
    putOptional(out, "maxLength", pin.maxLength);
    putOptional(out, "pinReference", pin.pinReference);
    putHex(out, "padChar", pin.padChar);
    putOptional(out, "lastPinChange", pin.lastPinChange);
    if (pin.path) {
        out["path"] = pathJson(*pin.path);
    }
    return out;
}

template <class C, class S, class T>
Json objectJson(const char* type, const oss::PKCS15Object<C, S, T>& object) {
    Json out{{"type", type},
             {"commonObjectAttributes", commonObjectJson(object.commonObjectAttributes)},
             {"classAttributes", classJson(object.classAttributes)}};
    if (object.subClassAttributes) {
        out["subClassAttributes"] = subClassJson(*object.subClassAttributes);
    }
    out["typeAttributes"] = typeJson(object.typeAttributes);
    return out;
}

// An alternative kept as its raw TLV. Objects of every kind open with their
// common object and class attributes; what of them can be read is shown.
template <class ClassAttributes> Json unsupportedJson(const char* type, const oss::Bytes& raw) {
    Json out{{"type", type}, {"supported", false}, {"size", raw.size()}};
    try {
        oss::DerReader reader(raw.data(), raw.size());
        oss::DerReader object = reader.enter(reader.next());
        const oss::Tlv common = object.next();
        oss::CommonObjectAttributes commonAttributes;
        oss::decode(common.begin, common.totalSize, commonAttributes);
        out["commonObjectAttributes"] = commonObjectJson(commonAttributes);
        const oss::Tlv classTlv = object.next();
        ClassAttributes classAttributes;
        oss::decode(classTlv.begin, classTlv.totalSize, classAttributes);
        out["classAttributes"] = classJson(classAttributes);
    } catch (const app::InvalidDataException&) {
        // Not shaped like an object: its size says what is there.
    }
    return out;
}

template <class Entry, class ClassAttributes, class Value>
Json choiceJson(const Entry& entry, Names types, const Value& supportedValue) {
    const char* type = entry.choice >= 1 && static_cast<std::size_t>(entry.choice) <= types.size()
                           ? types.begin()[entry.choice - 1]
                           : "unknown";
    if (entry.choice == 1) {
        return objectJson(type, supportedValue);
    }
    return unsupportedJson<ClassAttributes>(type, entry.raw);
}

} // namespace

Json accessRulesJson(const std::vector<oss::AccessControlRule>& rules, const PinNamer& pinName) {
    Json list = Json::array();
    for (const oss::AccessControlRule& rule : rules) {
        list.push_back(Json{{"accessMode", flagsJson(rule.accessMode, accessModes)},
                            {"condition", conditionText(rule.securityCondition, pinName)}});
    }
    return list;
}

Json entryJson(const oss::PKCS15Objects& entry) {
    static const char* const types[] = {
        "", "privateKeys", "publicKeys", "certificates", "dataObjects", "authObjects"};
    Json out{{"type", types[entry.choice]}};
    if (entry.value.choice == oss::PathOrObjects::path) {
        out["path"] = pathJson(entry.value.pathValue);
    } else {
        out["supported"] = false;
        out["size"] = entry.value.raw.size();
    }
    return out;
}

Json entryJson(const oss::PrivateKeyType& entry) {
    return choiceJson<oss::PrivateKeyType, oss::CommonKeyAttributes>(
        entry,
        {"privateRSAKey", "privateECKey", "privateDHKey", "privateDSAKey", "privateKEAKey",
         "unknown"},
        entry.privateRSAKeyValue);
}

Json entryJson(const oss::PublicKeyType& entry) {
    return choiceJson<oss::PublicKeyType, oss::CommonKeyAttributes>(
        entry,
        {"publicRSAKey", "publicECKey", "publicDHKey", "publicDSAKey", "publicKEAKey", "unknown"},
        entry.publicRSAKeyValue);
}

Json entryJson(const oss::CertificateType& entry) {
    return choiceJson<oss::CertificateType, oss::CommonCertificateAttributes>(
        entry,
        {"x509Certificate", "x509AttributeCertificate", "spkiCertificate", "pgpCertificate",
         "wtlsCertificate", "x9-68Certificate", "cvCertificate", "unknown"},
        entry.x509CertificateValue);
}

Json entryJson(const oss::DataType& entry) {
    return choiceJson<oss::DataType, oss::CommonDataObjectAttributes>(
        entry, {"opaqueDO", "externalIDO", "oidDO", "unknown"}, entry.opaqueDOValue);
}

Json entryJson(const oss::AuthenticationType& entry) {
    return choiceJson<oss::AuthenticationType, oss::CommonAuthenticationObjectAttributes>(
        entry, {"pin", "biometricTemplate", "authKey", "external", "unknown"}, entry.pinValue);
}

Json entryJson(const oss::TokenInfo& info) {
    Json out{{"type", "tokenInfo"}, {"version", info.version}};
    putHex(out, "serialNumber", info.serialNumber);
    putText(out, "manufacturerID", info.manufacturerID);
    putText(out, "label", info.label);
    out["tokenflags"] = flagsJson(info.tokenflags, tokenFlags);
    if (info.seInfo) {
        Json environments = Json::array();
        for (const oss::SecurityEnvironmentInfo& environment : *info.seInfo) {
            environments.push_back(
                Json{{"se", environment.se}, {"owner", oss::oidToText(environment.owner)}});
        }
        out["seInfo"] = environments;
    }
    if (info.recordInfo) {
        Json lengths = Json::object();
        const oss::RecordInfo& records = *info.recordInfo;
        putOptional(lengths, "oDFRecordLength", records.oDFRecordLength);
        putOptional(lengths, "prKDFRecordLength", records.prKDFRecordLength);
        putOptional(lengths, "puKDFRecordLength", records.puKDFRecordLength);
        putOptional(lengths, "sKDFRecordLength", records.sKDFRecordLength);
        putOptional(lengths, "cDFRecordLength", records.cDFRecordLength);
        putOptional(lengths, "dODFRecordLength", records.dODFRecordLength);
        putOptional(lengths, "aODFRecordLength", records.aODFRecordLength);
        out["recordInfo"] = lengths;
    }
    if (info.supportedAlgorithms) {
        Json algorithms = Json::array();
        for (const oss::AlgorithmInfo& algorithm : *info.supportedAlgorithms) {
            Json item{
                {"reference", algorithm.reference},
                {"algorithm", algorithm.algorithm},
                {"parameters", hex(algorithm.parameters)},
                {"supportedOperations", flagsJson(algorithm.supportedOperations, operations)}};
            if (algorithm.algId) {
                item["algId"] = oss::oidToText(*algorithm.algId);
            }
            putOptional(item, "algRef", algorithm.algRef);
            algorithms.push_back(item);
        }
        out["supportedAlgorithms"] = algorithms;
    }
    putText(out, "issuerId", info.issuerId);
    putText(out, "holderId", info.holderId);
    if (info.lastUpdate && info.lastUpdate->choice == oss::LastUpdate::generalizedTime) {
        out["lastUpdate"] = info.lastUpdate->generalizedTimeValue;
    }
    putText(out, "preferredLanguage", info.preferredLanguage);
    return out;
}

Json entryJson(const oss::DIRRecord& record) {
    Json out{{"type", "application"}};
    putIdentifier(out, "aid", record.aid);
    putText(out, "label", record.label);
    out["path"] = hex(record.path);
    putHex(out, "ddo", record.ddo);
    return out;
}

} // namespace p15tool
