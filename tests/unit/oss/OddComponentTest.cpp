// Components the codec does not know, in every attribute SEQUENCE it reads
// (real cards' samples are walked byte for byte in SamplesTest).
#include "tests/support/CodecTestUtil.hpp"

#include "app/pkcs15/oss/DerReader.hpp"

#include <functional>

namespace {

// The TLVs inside the constructed TLV reached by `path` (component numbers
// from `tlv` down).
std::vector<oss::Bytes> components(const oss::Bytes& tlv,
                                   const std::vector<std::size_t>& path = {}) {
    oss::DerReader outer(tlv.data(), tlv.size());
    oss::DerReader content = outer.enter(outer.next());
    std::vector<oss::Bytes> parts;
    while (!content.atEnd()) {
        parts.push_back(content.next().bytes());
    }
    return path.empty() ? parts : components(parts[path[0]], {path.begin() + 1, path.end()});
}

// Entries of our own making with a component in every attribute SEQUENCE the
// codec reads; a vendor component is put into each SEQUENCE in turn, before
// its first component, after its first one and after its last one.
const oss::Bytes vendorComponent = hex("DF2002CAFE");

// A SEQUENCE's components the codec does not know.
struct Odd {
    oss::MisplacedComponents* misplaced;
    oss::UnknownComponents* unknown;
};
template <class S> Odd oddOf(S& sequence) {
    return {&sequence.misplacedComponents, &sequence.unknownComponents};
}

oss::Bytes withLength(std::uint8_t tag, const oss::Bytes& content) {
    oss::Bytes tlv{tag};
    if (content.size() >= 0x80) {
        tlv.push_back(0x81); // the samples' constructed values stay below 256 bytes
    }
    tlv.push_back(static_cast<std::uint8_t>(content.size()));
    tlv.insert(tlv.end(), content.begin(), content.end());
    return tlv;
}

// `tlv` with `component` at `position` of the SEQUENCE reached by `path`.
oss::Bytes inserted(const oss::Bytes& tlv, std::vector<std::size_t> path, std::size_t position,
                    const oss::Bytes& component) {
    std::vector<oss::Bytes> parts = components(tlv);
    if (path.empty()) {
        parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(position), component);
    } else {
        const std::size_t first = path.front();
        path.erase(path.begin());
        parts[first] = inserted(parts[first], path, position, component);
    }
    oss::Bytes content;
    for (const oss::Bytes& part : parts) {
        content.insert(content.end(), part.begin(), part.end());
    }
    return withLength(tlv[0], content);
}

template <class T> struct OddSequence {
    const char* name;
    std::vector<std::size_t> path;
    std::function<Odd(T&)> odd;
    bool between = true; // false where the second component takes any tag
};

// Each sequence with the vendor component in each place: the entry decodes
// with its known fields as without it and keeps it byte for byte. (Relabelled
// entries keep such components: UnmodelledComponents and the module's
// ObjectsTest.)
template <class T>
void expectOddComponentsKept(const std::string& sample, const std::vector<OddSequence<T>>& table) {
    const oss::Bytes base = loadSample("../odd-components/" + sample);
    const T plain = decodeAll<T>(base);
    for (const OddSequence<T>& sequence : table) {
        const std::size_t count = components(base, sequence.path).size();
        for (std::size_t position : {std::size_t{0}, sequence.between ? 1 : count, count}) {
            SCOPED_TRACE(std::string(sequence.name) + ", vendor component at " +
                         std::to_string(position) + " of " + std::to_string(count));
            const oss::Bytes odd = inserted(base, sequence.path, position, vendorComponent);
            T entry = decodeAll<T>(odd);
            EXPECT_EQ(oss::encode(entry), odd);
            const Odd kept = sequence.odd(entry);
            const bool last = position == count;
            ASSERT_EQ(kept.misplaced->size(), last ? 0u : 1u);
            EXPECT_EQ(*kept.unknown,
                      last ? oss::UnknownComponents{vendorComponent} : oss::UnknownComponents{});
            if (!last) {
                EXPECT_EQ(kept.misplaced->front().tlv, vendorComponent);
            }
            kept.misplaced->clear();
            kept.unknown->clear();
            EXPECT_TRUE(entry == plain) << "the known components read as without it";
        }
    }
}

// A row: the SEQUENCE `entry.member` of a `Type` entry, at the component path.
// clang-format off
#define ODD_ROW(Type, member, ...) \
    OddSequence<Type>{#member, {__VA_ARGS__}, [](Type& entry) { return oddOf(entry.member); }}
// clang-format on

TEST(OddComponentTest, everyAttributeSequenceKeepsAVendorComponentInAnyPlace) {
    using Key = oss::PrivateKeyType;
    expectOddComponentsKept<Key>(
        "prkdf.hex",
        {ODD_ROW(Key, privateRSAKeyValue.commonObjectAttributes, 0),
         // The rule's condition, a CHOICE open to extensions, takes any tag.
         {"rule",
          {0, 3, 0},
          [](Key& key) {
              return oddOf(key.privateRSAKeyValue.commonObjectAttributes.accessControlRules->at(0));
          },
          false},
         ODD_ROW(Key, privateRSAKeyValue.classAttributes, 1),
         ODD_ROW(Key, privateRSAKeyValue.subClassAttributes.value(), 2, 0),
         ODD_ROW(Key, privateRSAKeyValue.typeAttributes, 3, 0),
         ODD_ROW(Key, privateRSAKeyValue.typeAttributes.value.indirectValue.pathValue, 3, 0, 0)});
    using Public = oss::PublicKeyType;
    expectOddComponentsKept<Public>(
        "pukdf.hex", {ODD_ROW(Public, publicRSAKeyValue.subClassAttributes.value(), 2, 0),
                      ODD_ROW(Public, publicRSAKeyValue.typeAttributes, 3, 0)});
    using Certificate = oss::CertificateType;
    expectOddComponentsKept<Certificate>(
        "cdf.hex", {ODD_ROW(Certificate, x509CertificateValue.classAttributes, 1),
                    ODD_ROW(Certificate, x509CertificateValue.typeAttributes, 2, 0)});
    using Data = oss::DataType;
    expectOddComponentsKept<Data>(
        "dodf.hex", {ODD_ROW(Data, opaqueDOValue.classAttributes, 1),
                     ODD_ROW(Data, opaqueDOValue.typeAttributes.indirectValue.pathValue, 2, 0)});
    using Pin = oss::AuthenticationType;
    expectOddComponentsKept<Pin>("aodf.hex", {ODD_ROW(Pin, pinValue.classAttributes, 1),
                                              ODD_ROW(Pin, pinValue.typeAttributes, 2, 0)});
    using Info = oss::TokenInfo;
    expectOddComponentsKept<Info>("tokeninfo.hex",
                                  {{"TokenInfo", {}, [](Info& info) { return oddOf(info); }},
                                   ODD_ROW(Info, supportedAlgorithms->at(0), 5, 0)});
}

// A subject Name a card put in [1] before the serial number, read as an
// unknown component; a change that removes the component a misplaced one
// stood before is refused.
TEST(OddComponentTest, aCertificateWithItsSubjectInAnUnknownTagLists) {
    const oss::Bytes base = loadSample("../odd-components/cdf.hex");
    const oss::Bytes subjectInOne =
        inserted(base, {2, 0}, 3, hex("A110 300E 310C 300A 0603550403 0C034B6579"));
    auto certificate = decodeAll<oss::CertificateType>(subjectInOne);
    oss::X509CertificateAttributes& type = certificate.x509CertificateValue.typeAttributes;
    EXPECT_EQ(type.serialNumber, hex("0123"));
    EXPECT_EQ(type.misplacedComponents.at(0).beforeTag, 0x02u);
    type.serialNumber.reset();
    EXPECT_EQ(appError<app::InvalidDataException>([&] { oss::encode(certificate); }).first,
              oss::kTextCannotPlace);
}

} // namespace
