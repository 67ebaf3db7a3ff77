#ifndef APP_PKCS15_OSS_ASN1TYPES_HPP
#define APP_PKCS15_OSS_ASN1TYPES_HPP

// The PKCS#15 ASN.1 types as plain values.
//
// Conventions:
// - OPTIONAL and DEFAULT components are boost::optional; an absent DEFAULT
//   component means its default value, a present one is written as given.
// - A CHOICE is `choice` (numbered from 1 in the order of the alternatives
//   listed in the type) plus the payload of the chosen alternative.
//   Alternatives this system does not interpret are recognised and kept as
//   `raw`: the whole TLV exactly as read, written back byte for byte.
// - Components of foreign types (Name, KeyInfo, CredentialIdentifier, ...)
//   are kept as the raw TLV as well.
// - Change without loss: every SEQUENCE keeps the components after the last
//   one it models in `unknownComponents` (each TLV as read, written back
//   after the known ones; they take part in comparisons), and those a card
//   put before a known one in `misplacedComponents` (written back before the
//   same known component). A text of a
//   free string type keeps its TLV as read in an `...Encoding` field (empty
//   for a DER UTF8String), written back instead of a new UTF8String while the
//   text is unchanged; being representation only, it takes no part in
//   comparisons.
//   So an entry read from a card is changed without loss by changing the
//   decoded value in place and encoding it, never by building a new one.
// - OBJECT IDENTIFIERs are their content octets (see Codec.hpp for the
//   dotted-text helpers), INTEGER components are 64-bit signed numbers
//   (references 0..255, whose one-octet form is read unsigned),
//   GeneralizedTime is its text.

#include <boost/optional.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace app::pkcs15::oss {

using Bytes = std::vector<std::uint8_t>;
using Integer = std::int64_t;
// Components a SEQUENCE does not model, after its last known one: each TLV as read.
using UnknownComponents = std::vector<Bytes>;

// A component a SEQUENCE does not model, found before one it does: its TLV as
// read, and the known component it stood before, told by its tag and by how
// many known components with that tag came before it.
struct MisplacedComponent {
    Bytes tlv;
    std::uint32_t beforeTag = 0;
    std::size_t beforeOrdinal = 0;
    auto tie() const { return std::tie(tlv, beforeTag, beforeOrdinal); }
};
using MisplacedComponents = std::vector<MisplacedComponent>;

// Every value type compares member-wise through its tie().
template <class T> auto operator==(const T& a, const T& b) -> decltype(a.tie() == b.tie()) {
    return a.tie() == b.tie();
}
template <class T> auto operator!=(const T& a, const T& b) -> decltype(a.tie() == b.tie()) {
    return !(a == b);
}

// A named bit string: `bitCount` bits, the first one the top bit of
// octets[0]. The count is kept as declared so that flag words keep their
// declared length (a 10-bit usage with only bit 0 set is 03 03 06 80 00).
struct BitString {
    Bytes octets;
    std::size_t bitCount = 0;
    auto tie() const { return std::tie(octets, bitCount); }
};

struct Path {
    Bytes path;
    boost::optional<Integer> index;
    boost::optional<Integer> length;           // [0]
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(path, index, length, unknownComponents, misplacedComponents);
    }
};

// ReferencedValue: 1 path, 2 url (raw).
struct ReferencedValue {
    enum Choice { path = 1, url };
    int choice = path;
    Path pathValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, pathValue, raw); }
};

// ObjectValue: 1 indirect, 2 direct [0], 3 indirect-protected [1],
// 4 direct-protected [2], 5 unknown extension; 2 to 5 raw.
struct ObjectValue {
    enum Choice { indirect = 1, direct, indirectProtected, directProtected, unknown };
    int choice = indirect;
    ReferencedValue indirectValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, indirectValue, raw); }
};

// SecurityCondition: 1 authId, 2 not [0], 3 and [1], 4 or [2], then the
// alternatives beyond PKCS#15 seen on cards: 5 always (NULL),
// 6 any other extension (raw).
struct SecurityCondition {
    enum Choice { authId = 1, notCondition, andCondition, orCondition, always, unknown };
    int choice = authId;
    Bytes authIdValue;
    std::vector<SecurityCondition> operands; // one for `not`, the list for and/or
    Bytes raw;
    auto tie() const { return std::tie(choice, authIdValue, operands, raw); }
};

struct AccessControlRule {
    BitString accessMode;
    SecurityCondition securityCondition;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(accessMode, securityCondition, unknownComponents, misplacedComponents);
    }
};

struct CommonObjectAttributes {
    boost::optional<std::string> label;
    boost::optional<BitString> flags;
    boost::optional<Bytes> authId;
    boost::optional<Integer> userConsent;
    boost::optional<std::vector<AccessControlRule>> accessControlRules;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    Bytes labelEncoding{};                     // the label's TLV as read (any string type)
    auto tie() const {
        return std::tie(label, flags, authId, userConsent, accessControlRules, unknownComponents,
                        misplacedComponents);
    }
};

struct CommonKeyAttributes {
    Bytes iD;
    BitString usage;
    boost::optional<bool> native; // DEFAULT TRUE
    boost::optional<BitString> accessFlags;
    boost::optional<Integer> keyReference; // 0..255: one octet 81 reads as 0x81
    boost::optional<std::string> startDate;
    boost::optional<std::string> endDate;               // [0]
    boost::optional<std::vector<Integer>> algReference; // [1] AlgorithmInfo references
    UnknownComponents unknownComponents{};              // after the last known component, as read
    MisplacedComponents misplacedComponents{};          // before a known component, as read
    auto tie() const {
        return std::tie(iD, usage, native, accessFlags, keyReference, startDate, endDate,
                        algReference, unknownComponents, misplacedComponents);
    }
};

struct CommonPrivateKeyAttributes {
    boost::optional<Bytes> subjectName;        // Name TLV
    boost::optional<Bytes> keyIdentifiers;     // [0] TLV
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(subjectName, keyIdentifiers, unknownComponents, misplacedComponents);
    }
};

struct CommonPublicKeyAttributes {
    boost::optional<Bytes> subjectName;        // Name TLV
    boost::optional<Bytes> trustedUsage;       // [0] TLV
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(subjectName, trustedUsage, unknownComponents, misplacedComponents);
    }
};

struct CommonCertificateAttributes {
    Bytes iD;
    boost::optional<bool> authority;           // DEFAULT FALSE
    boost::optional<Bytes> identifier;         // CredentialIdentifier TLV
    boost::optional<Bytes> certHash;           // [0] TLV
    boost::optional<Bytes> trustedUsage;       // [1] TLV
    boost::optional<Bytes> identifiers;        // [2] TLV
    boost::optional<bool> implicitTrust;       // [3] DEFAULT FALSE
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(iD, authority, identifier, certHash, trustedUsage, identifiers,
                        implicitTrust, unknownComponents, misplacedComponents);
    }
};

struct CommonDataObjectAttributes {
    boost::optional<std::string> applicationName;
    boost::optional<Bytes> applicationOID;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    Bytes applicationNameEncoding{};           // the applicationName's TLV as read
    auto tie() const {
        return std::tie(applicationName, applicationOID, unknownComponents, misplacedComponents);
    }
};

struct CommonAuthenticationObjectAttributes {
    Bytes authId;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const { return std::tie(authId, unknownComponents, misplacedComponents); }
};

// The subclass attributes of certificates, data and authentication objects:
// NULL, or what a card wrote there instead.
struct NullAttributes {
    UnknownComponents components{}; // the TLVs inside [0] unless a lone NULL, as read
    auto tie() const { return std::tie(components); }
};

struct PrivateRSAKeyAttributes {
    ObjectValue value;
    Integer modulusLength = 0;
    boost::optional<Bytes> keyInfo;            // KeyInfo TLV
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(value, modulusLength, keyInfo, unknownComponents, misplacedComponents);
    }
};

struct PublicRSAKeyAttributes {
    ObjectValue value;
    Integer modulusLength = 0;
    boost::optional<Bytes> keyInfo;            // KeyInfo TLV
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(value, modulusLength, keyInfo, unknownComponents, misplacedComponents);
    }
};

struct X509CertificateAttributes {
    ObjectValue value;
    boost::optional<Bytes> subject;            // Name TLV
    boost::optional<Bytes> issuer;             // [0] Name: the Name TLV inside the tag
    boost::optional<Bytes> serialNumber;       // INTEGER content octets
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(value, subject, issuer, serialNumber, unknownComponents,
                        misplacedComponents);
    }
};

struct PinAttributes {
    BitString pinFlags;
    Integer pinType = 0; // ENUMERATED: 0 bcd, 1 ascii-numeric, 2 utf8, ...
    Integer minLength = 0;
    Integer storedLength = 0;
    boost::optional<Integer> maxLength;
    boost::optional<Integer> pinReference; // [0] DEFAULT 0; 0..255 like keyReference
    boost::optional<Bytes> padChar;
    boost::optional<std::string> lastPinChange;
    boost::optional<Path> path;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(pinFlags, pinType, minLength, storedLength, maxLength, pinReference,
                        padChar, lastPinChange, path, unknownComponents, misplacedComponents);
    }
};

template <class ClassAttributes, class SubClassAttributes, class TypeAttributes>
struct PKCS15Object {
    CommonObjectAttributes commonObjectAttributes;
    ClassAttributes classAttributes;
    boost::optional<SubClassAttributes> subClassAttributes; // [0]
    TypeAttributes typeAttributes;                          // [1]
    UnknownComponents unknownComponents{};                  // after [1], as read
    // Whether [0] / [1] came in the other of the two forms cards use (with or
    // without a SEQUENCE inside the tag, see CodecObjects.cpp): written back so.
    bool subClassAttributesOtherForm = false;
    bool typeAttributesOtherForm = false;
    auto tie() const {
        return std::tie(commonObjectAttributes, classAttributes, subClassAttributes, typeAttributes,
                        unknownComponents);
    }
};

using PrivateRSAKeyObject =
    PKCS15Object<CommonKeyAttributes, CommonPrivateKeyAttributes, PrivateRSAKeyAttributes>;
using PublicRSAKeyObject =
    PKCS15Object<CommonKeyAttributes, CommonPublicKeyAttributes, PublicRSAKeyAttributes>;
using X509CertificateObject =
    PKCS15Object<CommonCertificateAttributes, NullAttributes, X509CertificateAttributes>;
using OpaqueDataObject = PKCS15Object<CommonDataObjectAttributes, NullAttributes, ObjectValue>;
using PinObject = PKCS15Object<CommonAuthenticationObjectAttributes, NullAttributes, PinAttributes>;

// PrivateKeyType: 1 privateRSAKey, 2 EC [0], 3 DH [1], 4 DSA [2], 5 KEA [3],
// 6 unknown extension; 2 to 6 raw.
struct PrivateKeyType {
    enum Choice {
        privateRSAKey = 1,
        privateECKey,
        privateDHKey,
        privateDSAKey,
        privateKEAKey,
        unknown
    };
    int choice = privateRSAKey;
    PrivateRSAKeyObject privateRSAKeyValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, privateRSAKeyValue, raw); }
};

// PublicKeyType: 1 publicRSAKey, 2 EC [0], 3 DH [1], 4 DSA [2], 5 KEA [3],
// 6 unknown extension; 2 to 6 raw.
struct PublicKeyType {
    enum Choice { publicRSAKey = 1, publicECKey, publicDHKey, publicDSAKey, publicKEAKey, unknown };
    int choice = publicRSAKey;
    PublicRSAKeyObject publicRSAKeyValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, publicRSAKeyValue, raw); }
};

// CertificateType: 1 x509Certificate, 2 x509AttributeCertificate [0],
// 3 spki [1], 4 pgp [2], 5 wtls [3], 6 x9-68 [4], 7 cv [5],
// 8 unknown extension; 2 to 8 raw.
struct CertificateType {
    enum Choice {
        x509Certificate = 1,
        x509AttributeCertificate,
        spkiCertificate,
        pgpCertificate,
        wtlsCertificate,
        x9_68Certificate,
        cvCertificate,
        unknown
    };
    int choice = x509Certificate;
    X509CertificateObject x509CertificateValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, x509CertificateValue, raw); }
};

// DataType: 1 opaqueDO, 2 externalIDO [0], 3 oidDO [1], 4 unknown extension;
// 2 to 4 raw.
struct DataType {
    enum Choice { opaqueDO = 1, externalIDO, oidDO, unknown };
    int choice = opaqueDO;
    OpaqueDataObject opaqueDOValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, opaqueDOValue, raw); }
};

// AuthenticationType: 1 pin, 2 biometricTemplate [0], 3 authKey [1],
// 4 external [2], 5 unknown extension; 2 to 5 raw.
struct AuthenticationType {
    enum Choice { pin = 1, biometricTemplate, authKey, external, unknown };
    int choice = pin;
    PinObject pinValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, pinValue, raw); }
};

// PathOrObjects: 1 path, 2 objects [0], 3 indirect-protected [1],
// 4 direct-protected [2], 5 unknown extension; 2 to 5 raw.
struct PathOrObjects {
    enum Choice { path = 1, objects, indirectProtected, directProtected, unknown };
    int choice = path;
    Path pathValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, pathValue, raw); }
};

// PKCS15Objects knows exactly these alternatives; any other tag (trusted
// public keys [2], secret keys [3], trusted [5] and useful [6] certificates,
// extensions) is a decode error.
struct PKCS15Objects {
    enum Choice { privateKeys = 1, publicKeys, certificates, dataObjects, authObjects };
    int choice = privateKeys;
    PathOrObjects value;
    auto tie() const { return std::tie(choice, value); }
};

struct SecurityEnvironmentInfo {
    Integer se = 0;
    Bytes owner;                               // OBJECT IDENTIFIER
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const { return std::tie(se, owner, unknownComponents, misplacedComponents); }
};

struct RecordInfo {
    boost::optional<Integer> oDFRecordLength;   // [0]
    boost::optional<Integer> prKDFRecordLength; // [1]
    boost::optional<Integer> puKDFRecordLength; // [2]
    boost::optional<Integer> sKDFRecordLength;  // [3]
    boost::optional<Integer> cDFRecordLength;   // [4]
    boost::optional<Integer> dODFRecordLength;  // [5]
    boost::optional<Integer> aODFRecordLength;  // [6]
    UnknownComponents unknownComponents{};      // after the last known component, as read
    MisplacedComponents misplacedComponents{};  // before a known component, as read
    auto tie() const {
        return std::tie(oDFRecordLength, prKDFRecordLength, puKDFRecordLength, sKDFRecordLength,
                        cDFRecordLength, dODFRecordLength, aODFRecordLength, unknownComponents,
                        misplacedComponents);
    }
};

struct AlgorithmInfo {
    Integer reference = 0;
    Integer algorithm = 0;
    Bytes parameters; // TLV of the algorithm's parameters (05 00 for NULL)
    BitString supportedOperations;
    boost::optional<Bytes> algId; // OBJECT IDENTIFIER
    boost::optional<Integer> algRef;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    auto tie() const {
        return std::tie(reference, algorithm, parameters, supportedOperations, algId, algRef,
                        unknownComponents, misplacedComponents);
    }
};

// LastUpdate: 1 generalizedTime, 2 referencedTime (raw), 3 unknown (raw).
struct LastUpdate {
    enum Choice { generalizedTime = 1, referencedTime, unknown };
    int choice = generalizedTime;
    std::string generalizedTimeValue;
    Bytes raw;
    auto tie() const { return std::tie(choice, generalizedTimeValue, raw); }
};

struct TokenInfo {
    Integer version = 0;
    boost::optional<Bytes> serialNumber; // mandatory in PKCS#15, absent on some cards
    boost::optional<std::string> manufacturerID;
    boost::optional<std::string> label; // [0]
    BitString tokenflags;
    boost::optional<std::vector<SecurityEnvironmentInfo>> seInfo;
    boost::optional<RecordInfo> recordInfo;                          // [1]
    boost::optional<std::vector<AlgorithmInfo>> supportedAlgorithms; // [2]
    boost::optional<std::string> issuerId;                           // [3]
    boost::optional<std::string> holderId;                           // [4]
    boost::optional<LastUpdate> lastUpdate;                          // [5]
    boost::optional<std::string> preferredLanguage;
    UnknownComponents unknownComponents{};     // after the last known component, as read
    MisplacedComponents misplacedComponents{}; // before a known component, as read
    Bytes manufacturerIDEncoding{};            // the manufacturerID's TLV as read
    auto tie() const {
        return std::tie(version, serialNumber, manufacturerID, label, tokenflags, seInfo,
                        recordInfo, supportedAlgorithms, issuerId, holderId, lastUpdate,
                        preferredLanguage, unknownComponents, misplacedComponents);
    }
};

// EF(DIR) record ([APPLICATION 1]).
struct DIRRecord {
    Bytes aid;                             // [APPLICATION 15]
    boost::optional<std::string> label;    // [APPLICATION 16]
    Bytes path;                            // [APPLICATION 17]
    boost::optional<Bytes> ddo;            // [APPLICATION 19] TLV
    UnknownComponents unknownComponents{}; // other data objects, as read, in their order
    auto tie() const { return std::tie(aid, label, path, ddo, unknownComponents); }
};

} // namespace app::pkcs15::oss

#endif
