#include "tests/support/CodecTestUtil.hpp"

namespace {

// Layouts the samples (SamplesTest) do not show: each component of key
// attributes, an all-default entry, a TokenInfo without its options.
TEST(CodecTest, handCheckedPrimitiveLayouts) {
    // A 10-bit usage with only bit 0 set keeps all ten bits.
    oss::CommonKeyAttributes key{hex("01"), {hex("8000"), 10}, {}, {}, {}, {}, {}, {}};
    expectDer(key, "3008 040101 0303068000");
    key.usage.octets = hex("80");
    EXPECT_EQ(oss::encode(key), hex("3008 040101 0303068000"));
    expectDer(oss::CommonKeyAttributes{hex("45"),
                                       {hex("2000"), 10},
                                       false,
                                       oss::BitString{hex("B8"), 5},
                                       oss::Integer{0x81},
                                       std::string("20240101000000Z"),
                                       std::string("20300101000000Z"),
                                       std::vector<oss::Integer>{1, 0x81}},
              "303E 040145 0303062000 010100 030203B8 02020081"
              " 180F32303234303130313030303030305A 800F32303330303130313030303030305A"
              " A107 020101 02020081");
    expectDer(oss::CommonDataObjectAttributes{std::string("CSP"), hex("2A03")},
              "3009 0C03435350 06022A03");
    expectDer(oss::CommonObjectAttributes{}, "3000");
    oss::TokenInfo minimal;
    minimal.tokenflags = {{}, 0};
    expectDer(minimal, "3006 020100 030100");
}

TEST(CodecTest, unsupportedAlternativesAreKeptByteForByte) {
    const oss::Bytes ecKey = hex("A00B 3000 3003040101 A1023000");
    EXPECT_EQ(decodeAll<oss::PrivateKeyType>(ecKey).choice, oss::PrivateKeyType::privateECKey);
    EXPECT_EQ(oss::encode(decodeAll<oss::PrivateKeyType>(ecKey)), ecKey);
    EXPECT_EQ(decodeAll<oss::PublicKeyType>(hex("A3020500")).choice,
              oss::PublicKeyType::publicKEAKey);
    EXPECT_EQ(decodeAll<oss::CertificateType>(hex("A5020500")).choice,
              oss::CertificateType::cvCertificate);
    EXPECT_EQ(decodeAll<oss::CertificateType>(hex("AA020500")).choice,
              oss::CertificateType::unknown);
    EXPECT_EQ(decodeAll<oss::AuthenticationType>(hex("A1020500")).choice,
              oss::AuthenticationType::authKey);
    EXPECT_EQ(decodeAll<oss::DataType>(hex("A0020500")).choice, oss::DataType::externalIDO);
    const auto objects = decodeAll<oss::PKCS15Objects>(hex("A804 A0020500"));
    EXPECT_EQ(objects.value.choice, oss::PathOrObjects::objects);
    EXPECT_EQ(objects.value.raw, hex("A0020500"));
    const auto referenced = decodeAll<oss::TokenInfo>(hex("300C 020100 030100 A504 3002 0400"));
    EXPECT_EQ(referenced.lastUpdate->choice, oss::LastUpdate::referencedTime);
    const auto url = decodeAll<oss::ObjectValue>(hex("1303 414243"));
    EXPECT_EQ(url.indirectValue.choice, oss::ReferencedValue::url);
}

TEST(CodecTest, realCardDeviationsDecode) {
    // Long-form and non-minimal lengths, non-minimal INTEGER, BOOLEAN TRUE as 01.
    const auto path = decodeAll<oss::Path>(hex("3082000C 0481043F004401 0203000005"));
    EXPECT_EQ(path.path, hex("3F004401"));
    EXPECT_EQ(path.index, oss::Integer{5});
    const auto key = decodeAll<oss::CommonKeyAttributes>(hex("300A 040101 03020520 010101"));
    EXPECT_EQ(key.native, true);
    // T61String / PrintableString labels; unused bits not zero.
    const auto common = decodeAll<oss::CommonObjectAttributes>(hex("3007 14014B 03020207"));
    EXPECT_EQ(common.label, std::string("K"));
    EXPECT_TRUE(common.flags == (oss::BitString{hex("04"), 6}));
    const auto data = decodeAll<oss::CommonDataObjectAttributes>(hex("3003 130141"));
    EXPECT_EQ(data.applicationName, std::string("A"));
    // Type attributes without their inner SEQUENCE decode like the explicit
    // form, and are written back the way they were read.
    const oss::Bytes implicit = hex("3016 3000 3007 040101 03020520 A109 3004 04024B01 020108");
    const oss::Bytes explicitForm =
        hex("3018 3000 3007 040101 03020520 A10B 3009 3004 04024B01 020108");
    EXPECT_TRUE(decodeAll<oss::PrivateKeyType>(implicit) ==
                decodeAll<oss::PrivateKeyType>(explicitForm));
    EXPECT_EQ(oss::encode(decodeAll<oss::PrivateKeyType>(implicit)), implicit);
    // A subject Name directly inside [0], without the CommonPrivateKeyAttributes SEQUENCE.
    const auto named = decodeAll<oss::PrivateKeyType>(
        hex("3020 3000 3007 040101 03020520 A006 3004 3102 3000 A10B 3009 3004 04024B01 020108"));
    EXPECT_EQ(named.privateRSAKeyValue.subClassAttributes->subjectName, hex("3004 3102 3000"));
    EXPECT_EQ(decodeAll<oss::SecurityCondition>(hex("A103 9F2000")).operands.size(), 1u);
}

// Lengths of 127 (short form 7F) and 128 (long form 81 80), inside and
// around a SEQUENCE, are written minimally and read back. A UTF8String label
// in DER (7F or 81 80) keeps no encoding of its own; one with a non-minimal
// length (81 7F) is written back as the card wrote it.
TEST(CodecTest, lengthsOnBothSidesOfTheShortForm) {
    for (const auto& [pathSize, header] : {std::pair{125, "307F 047D"},
                                           {126, "308180 047E"},
                                           {127, "308181 047F"},
                                           {128, "308183 048180"}}) {
        SCOPED_TRACE(pathSize);
        const oss::Bytes path(static_cast<std::size_t>(pathSize), 0x41);
        oss::Bytes der = hex(header);
        der.insert(der.end(), path.begin(), path.end());
        const oss::Path value{path, {}, {}};
        EXPECT_EQ(oss::encode(value), der);
        EXPECT_TRUE(decodeAll<oss::Path>(der) == value);
    }
    for (const auto& [size, length, kept] :
         {std::tuple{127, "7F", false}, {128, "8180", false}, {127, "817F", true}}) {
        SCOPED_TRACE(length);
        oss::Bytes label = hex("0C" + std::string(length));
        label.insert(label.end(), static_cast<std::size_t>(size), 'a');
        oss::Bytes der = hex("3081"); // the label alone is over 127 bytes
        der.push_back(static_cast<std::uint8_t>(label.size()));
        der.insert(der.end(), label.begin(), label.end());
        const auto common = decodeAll<oss::CommonObjectAttributes>(der);
        EXPECT_EQ(common.labelEncoding.empty(), !kept);
        EXPECT_EQ(oss::encode(common), der);
    }
}

// INTEGERs take the fewest two's complement octets and keep their sign.
TEST(CodecTest, integersAreMinimalAtTheSignBoundaries) {
    for (const auto& [value, der] : {std::pair{0, "3003 020100"},
                                     {127, "3003 02017F"},
                                     {128, "3004 02020080"},
                                     {-128, "3003 020180"},
                                     {-129, "3004 0202FF7F"}}) {
        oss::CommonObjectAttributes common;
        common.userConsent = value;
        expectDer(common, der);
    }
}

// References are 0..255; cards write those above 7F in one octet. Other
// INTEGERs keep their sign.
TEST(CodecTest, referencesWrittenInOneOctetAreUnsigned) {
    const auto key = decodeAll<oss::CommonKeyAttributes>(hex("300A 040101 03020520 020181"));
    EXPECT_EQ(key.keyReference, oss::Integer{0x81});
    EXPECT_EQ(oss::encode(key), hex("300B 040101 03020520 02020081"));
    const auto pin =
        decodeAll<oss::PinAttributes>(hex("3010 03020780 0A0100 020104 020108 8001FF"));
    EXPECT_EQ(pin.pinReference, oss::Integer{0xFF});
    const auto info = decodeAll<oss::TokenInfo>(
        hex("3019 020100 030100 A211 300F 020180 020101 0500 03020640 020181"));
    EXPECT_EQ(info.supportedAlgorithms->at(0).reference, 0x80);
    EXPECT_EQ(info.supportedAlgorithms->at(0).algRef, oss::Integer{0x81});
    EXPECT_EQ(
        decodeAll<oss::CommonKeyAttributes>(hex("300B 040101 03020520 0202FF7F")).keyReference,
        oss::Integer{-129});
    EXPECT_EQ(decodeAll<oss::CommonObjectAttributes>(hex("3003 0201FF")).userConsent,
              oss::Integer{-1});
}

// The NULL subclass attributes of a certificate, what a card put there
// instead, and unknown data objects of an EF(DIR) record are kept. (Unknown
// components in each SEQUENCE: OddComponentTest.)
TEST(CodecTest, componentsNotModelledAreKeptInTheirPlace) {
    const oss::Bytes nullSubClass = hex("3015 3000 3003040101 A0020500 A108 3006 3004 04024301");
    const auto plain = decodeAll<oss::CertificateType>(nullSubClass);
    EXPECT_TRUE(plain.x509CertificateValue.subClassAttributes->components.empty());
    EXPECT_EQ(oss::encode(plain), nullSubClass);
    const oss::Bytes otherSubClass = hex("3016 3000 3003040101 A0039F2000 A108 3006 3004 04024301");
    EXPECT_EQ(oss::encode(decodeAll<oss::CertificateType>(otherSubClass)), otherSubClass);
    const oss::Bytes record = hex("6114 4F05A000000063 51025015 7301AA 500150 5F5000");
    EXPECT_EQ(oss::encode(decodeAll<oss::DIRRecord>(record)),
              hex("6114 4F05A000000063 500150 51025015 7301AA 5F5000"));
}

// BMPString labels read as UTF-8 and, unchanged, are written back as read.
TEST(CodecTest, bmpStringLabels) {
    const oss::Bytes bmp = hex("3011 1E08 004B 00E9 D83D DE00 030206C0 040101");
    const auto common = decodeAll<oss::CommonObjectAttributes>(bmp);
    EXPECT_EQ(common.label, std::string("K\xC3\xA9\xF0\x9F\x98\x80"));
    EXPECT_TRUE(common.flags == (oss::BitString{hex("C0"), 2}));
    EXPECT_EQ(common.authId, hex("01"));
    EXPECT_EQ(oss::encode(common), bmp);
    for (const char* bad : {"3003 1E0100", "3004 1E02D83D", "3006 1E04DE00004B"}) {
        EXPECT_EQ(decodeError<oss::CommonObjectAttributes>(hex(bad)).first, oss::kTextInvalid)
            << bad;
    }
}

// Components before known ones are kept up to a bound (see OddComponentTest);
// beyond it the first failure is reported where it happened.
TEST(CodecTest, tooManyComponentsBeforeAKnownOneAreAnError) {
    std::string vendor;
    for (unsigned i = 0; i <= oss::kMaxMisplaced; ++i) {
        vendor += "DF2000";
    }
    EXPECT_EQ(decodeError<oss::CommonKeyAttributes>(hex("3022" + vendor + "040101 03020520")),
              Failure(oss::kTextUnexpectedTag, 2));
    EXPECT_EQ(
        decodeError<oss::CommonObjectAttributes>(hex("3022 0C014B" + vendor + "03020780")),
        Failure("ASN.1: unexpected tag before a known component of CommonObjectAttributes", 5));
}

// A change that would let a kept component be read as a known one is refused.
TEST(CodecTest, aChangeThatWouldAlterKeptComponentsIsRefused) {
    auto common = decodeAll<oss::CommonObjectAttributes>(
        hex("3013 040101 020101 3008 3006 03020780 0500 020105"));
    EXPECT_EQ(common.unknownComponents, oss::UnknownComponents{hex("020105")});
    common.authId.reset();
    decodeAll<oss::CommonObjectAttributes>(oss::encode(common));
    common.accessControlRules.reset();
    common.userConsent.reset();
    EXPECT_EQ(appError<app::InvalidDataException>([&] { oss::encode(common); }).first,
              oss::kTextCannotKeep);

    // Key attributes in [0] with a subject Name and an unknown component:
    // without the Name, the unknown one alone still reads as the attributes'.
    auto key = decodeAll<oss::PrivateKeyType>(hex(
        "3022 3000 3007 040101 03020520 A007 3005 3000 9F2000 A10C 300A 3004 04024B01 02020800"));
    key.privateRSAKeyValue.subClassAttributes->subjectName.reset();
    EXPECT_EQ(decodeAll<oss::PrivateKeyType>(oss::encode(key))
                  .privateRSAKeyValue.subClassAttributes->unknownComponents,
              oss::UnknownComponents{hex("9F2000")});
}

TEST(CodecTest, malformedInputReportsWhatAndWhere) {
    struct Case {
        const char* input;
        const char* text;
        unsigned offset;
    } cases[] = {
        {"", oss::kTextTruncated, 0},
        {"30", oss::kTextTruncated, 1},
        {"3080 04025031 0000", oss::kTextIndefinite, 1},
        {"3006 04025031", oss::kTextBeyondData, 0},
        {"3006 04025031 0205", oss::kTextBeyondData, 6},
        {"3084FFFFFFFF", oss::kTextBeyondData, 0},
        {"3003 020100", oss::kTextUnexpectedTag, 2},
        {"3000", oss::kTextMissing, 2},
        {"3005 040100 0200", oss::kTextInvalid, 5},
        {"300F 040100 020A 01FFFFFFFFFFFFFFFFFF", oss::kTextIntegerRange, 5},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(decodeError<oss::Path>(hex(c.input)), Failure(c.text, c.offset)) << c.input;
    }
    EXPECT_EQ(decodeError<oss::CommonObjectAttributes>(hex("3003 030108")).first,
              oss::kTextInvalid);
    EXPECT_EQ(decodeError<oss::SecurityCondition>(hex("0501 00")).first, oss::kTextInvalid);
    EXPECT_EQ(decodeError<oss::PKCS15Objects>(hex("A506 3004 04024451")).first,
              oss::kTextUnexpectedTag);
}

TEST(CodecTest, nestingIsBounded) {
    auto nestedNots = [](unsigned depth) {
        oss::SecurityCondition condition;
        condition.authIdValue = hex("01");
        for (unsigned i = 0; i < depth; ++i) {
            oss::SecurityCondition outer;
            outer.choice = oss::SecurityCondition::notCondition;
            outer.operands = {condition};
            condition = outer;
        }
        return condition;
    };
    decodeAll<oss::SecurityCondition>(oss::encode(nestedNots(oss::kMaxNesting - 1)));
    EXPECT_THROW(oss::encode(nestedNots(oss::kMaxNesting + 1)), app::InvalidDataException);
    // Hand-built: 40 nested [0] tags around an authId.
    oss::Bytes deep = hex("040101");
    for (int i = 0; i < 40; ++i) {
        deep.insert(deep.begin(), {0xA0, static_cast<std::uint8_t>(deep.size())});
    }
    EXPECT_EQ(decodeError<oss::SecurityCondition>(deep),
              Failure(oss::kTextTooDeep, 2 * oss::kMaxNesting));
}

TEST(CodecTest, valuesAreLimitedTo65535Bytes) {
    oss::Path path{oss::Bytes(65527, 0x41), {}, {}};
    EXPECT_EQ(oss::encode(path).size(), 65535u);
    path.path.push_back(0x41);
    EXPECT_EQ(appError<app::InvalidDataException>([&] { oss::encode(path); }),
              Failure(oss::kTextTooLong, 65536));
    oss::Bytes tooLong = hex("3083010000 0483 00FFFC");
    tooLong.resize(5 + 0x10000, 0x41);
    EXPECT_EQ(decodeError<oss::Path>(tooLong).first, oss::kTextTooLong);
}

TEST(CodecTest, objectIdentifierText) {
    EXPECT_EQ(oss::oidToText(hex("2A864886F70D010101")), "1.2.840.113549.1.1.1");
    EXPECT_EQ(oss::oidFromText("1.2.840.113549.1.1.1"), hex("2A864886F70D010101"));
    EXPECT_EQ(oss::oidToText(hex("8837")), "2.999");
    EXPECT_EQ(oss::oidFromText("2.999"), hex("8837"));
    for (const char* bad : {"", "1", "1.", "1.2.", ".1.2", "1..2", "3.1", "1.40", "1.2a", "1.2.x",
                            "1.2.-3", "01.2", "1.02"}) {
        EXPECT_THROW(oss::oidFromText(bad), app::InvalidDataException) << bad;
    }
    EXPECT_THROW(oss::oidToText(hex("2A86")), app::InvalidDataException);
    EXPECT_THROW(oss::oidToText(hex("FFFFFFFFFFFFFFFFFF7F")),
                 app::InvalidDataException); // > 64 bits
    EXPECT_THROW(oss::oidToText({}), app::InvalidDataException);
}

} // namespace
