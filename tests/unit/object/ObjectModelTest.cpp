#include "UnconnectedChannel.hpp"
#include "app/ApplicationException.hpp"
#include "app/SecurityConditions.hpp"
#include "app/TransformSecurityCondition.hpp"
#include "app/object/AbstractPrivateKey.hpp"
#include "app/object/TrackedValue.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "tests/support/AppFamily.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

namespace oss = app::pkcs15::oss;
namespace cs = card::service;
using namespace app::pkcs15::object;
using app::object::ICertificate;

// The text and number of the application exception `statement` throws.
template <class Statement> std::pair<std::string, unsigned int> failureOf(Statement statement) {
    try {
        statement();
    } catch (const app::ApplicationException& e) {
        const char* const* text = boost::get_error_info<app::ErrorText>(e);
        const unsigned int* data = boost::get_error_info<app::ErrorData>(e);
        return {text ? *text : "", data ? *data : 0};
    }
    return {"no failure", 0};
}
using Failure = std::pair<std::string, unsigned int>;

#define EXPECT_APP_TEXT(statement, text) EXPECT_EQ(failureOf([&] { statement; }).first, text)

oss::BitString bits(std::size_t count, oss::Bytes octets) {
    oss::BitString string;
    string.bitCount = count;
    string.octets = std::move(octets);
    return string;
}

// A PIN no card has seen; its service is never reached by these tests.
boost::shared_ptr<P15Pin> newPin() {
    return boost::make_shared<P15Pin>(nullptr, boost::weak_ptr<const app::pkcs15::fs::AODF>(), 0);
}

TEST(TrackedValue, SettingTheHeldValueTouchesWithoutChanging) {
    app::object::TrackedValue<std::uint16_t> value(7);
    value.set(7);
    EXPECT_TRUE(value.isTouched());
    EXPECT_FALSE(value.isChanged());
    value.set(9);
    value.clearTouched();
    value.set(9);
    EXPECT_TRUE(value.isChanged()) << "an equal write keeps the changed flag as it was";
    EXPECT_EQ(value.get(), 9);
    value.load(3);
    EXPECT_EQ(value.get(), 3);
    EXPECT_FALSE(value.isChanged() || value.isTouched());
}

// The attributes of a private key, before its PKCS#15 class exists.
class KeyAttributes : public app::object::AbstractPrivateKey {
public:
    ObjectClass getObjectClass() const override { return PrivateKeyObject; }
    std::uint32_t getKeyType() const override { return RsaPrivateKey; }
    card::service::KeyRef getKeyReference() const override { return {}; }
};

// Loading (native absent is TRUE, usage bits) is checked on real cards' entries by
// KeySamples.PrivateKeysOfRealCardsLoadWithTheirAttributes and APublicKeyOfARealCard...
TEST(CommonKeyAttributes, AStoreKeepsWhatWasNotSetAndANewEntryAlwaysCarriesNative) {
    oss::CommonKeyAttributes read;
    read.iD = {0x45};
    read.usage = bits(10, {0x40, 0x40}); // decrypt, nonRepudiation
    read.native = false;
    KeyAttributes key;
    loadCommonKeyAttributes(read, key);
    EXPECT_FALSE(key.isTouched());

    oss::CommonKeyAttributes rewritten = read;
    key.setAccessFlags(app::object::IKey::Sensitive);
    storeCommonKeyAttributes(key, Store::Touched, rewritten);
    EXPECT_TRUE(rewritten.accessFlags == bits(5, {0x80}));
    EXPECT_TRUE(rewritten.usage == read.usage) << "what was not set keeps its bits";

    oss::CommonKeyAttributes fresh;
    storeCommonKeyAttributes(KeyAttributes(), Store::All, fresh);
    EXPECT_TRUE(fresh.native && *fresh.native);
    EXPECT_TRUE(fresh.usage == bits(10, {0x00, 0x00}));
}

TEST(FlagWords, EncodeToTheirDeclaredLengthAndRefuseExtraBits) {
    EXPECT_EQ(encodeFlags(commonObjectFlags, 0x03), bits(2, {0xC0}));
    EXPECT_EQ(encodeFlags(pinFlags, 0x0C0), bits(12, {0x0C, 0x00}));
    EXPECT_EQ(encodeFlags(keyUsageFlags, 0), bits(10, {0x00, 0x00})) << "zero keeps its length";
    EXPECT_EQ(encodeFlags(keyAccessFlags, 0x1F), bits(5, {0xF8}));
    EXPECT_APP_TEXT(encodeFlags(commonObjectFlags, 0x04),
                    "Common Object flags not PKCS#15 conform");
    EXPECT_APP_TEXT(encodeFlags(pinFlags, 0x1000), "Pin flags not PKCS#15 conform");
    EXPECT_APP_TEXT(encodeFlags(keyUsageFlags, 0x400),
                    "Private RSA key usage flags not PKCS#15 conform.");
    EXPECT_APP_TEXT(encodeFlags(keyAccessFlags, 0x20),
                    "Private RSA key access flags not PKCS#15 conform.");
}

TEST(FlagWords, DecodeShortAndFullStringsAndRefuseLongOnes) {
    EXPECT_EQ(decodeFlags(keyUsageFlags, bits(8, {0xFF})), 0x3FC);
    EXPECT_EQ(decodeFlags(keyUsageFlags, bits(10, {0xFF, 0xC0})), 0x3FF);
    EXPECT_EQ(decodeFlags(keyAccessFlags, bits(5, {0x80})), 0x10);
    EXPECT_EQ(decodeFlags(pinFlags, bits(8, {0x3F})), 0x3F0);
    EXPECT_EQ(decodeFlags(commonObjectFlags, bits(0, {})), 0);
    EXPECT_APP_TEXT(decodeFlags(keyUsageFlags, bits(11, {0xFF, 0xE0})),
                    "PrivateKey::UsageFlags not PKCS#15 conform");
    EXPECT_APP_TEXT(decodeFlags(keyAccessFlags, bits(6, {0x80})),
                    "PrivateKey::AccessFlags not PKCS#15 conform");
    EXPECT_APP_TEXT(decodeFlags(pinFlags, bits(13, {0, 0})), "Pin Flags not PKCS#15 conform");
    EXPECT_APP_TEXT(decodeFlags(commonObjectFlags, bits(3, {0})),
                    "CommonObject Flags not PKCS#15 conform");
}

// Renders a card condition as text, to compare trees.
class Render : public cs::ISecurityConditionVisitor {
public:
    void visit(const cs::AndSecurityCondition& c) override { list("and", c.operands()); }
    void visit(const cs::OrSecurityCondition& c) override { list("or", c.operands()); }
    void visit(const cs::NotSecurityCondition& c) override { list("not", {c.operand()}); }
    void visit(const cs::PinRefSecurityCondition& c) override {
        out += "pin" + std::to_string(c.pin().reference) + "/" + std::to_string(c.pin().qualifier);
    }
    void visit(const cs::AlwaysSecurityCondition&) override { out += "always"; }
    void visit(const cs::NeverSecurityCondition&) override { out += "never"; }
    std::string out;

private:
    void list(const char* name, const cs::SecurityConditionList& operands) {
        out += std::string(name) + "(";
        for (const auto& operand : operands) {
            operand->accept(*this);
            out += operand == operands.back() ? "" : ",";
        }
        out += ")";
    }
};

std::string render(const app::ISecurityCondition& condition) {
    Render renderer;
    app::transform(condition)->accept(renderer);
    return renderer.out;
}

app::SecurityConditionPtr authId(std::vector<std::uint8_t> id) {
    return boost::make_shared<app::AuthIdSecurityCondition>(std::move(id));
}

TEST(Transform, BuildsTheCardTreeAndTakesTheFirstAuthIdByteAsPinReference) {
    const app::AndSecurityCondition nested(
        {authId({0x01}), boost::make_shared<app::NotSecurityCondition>(authId({0x02}))});
    EXPECT_EQ(render(nested), "and(pin1/0,not(pin2/0))");
    const app::OrSecurityCondition either({authId({0x81, 0x00}),
                                           boost::make_shared<app::AlwaysSecurityCondition>(),
                                           boost::make_shared<app::NeverSecurityCondition>()});
    EXPECT_EQ(render(either), "or(pin129/0,always,never)");
    EXPECT_APP_TEXT(render(app::AuthIdSecurityCondition({})), "transform: empty authId");
}

oss::AccessControlRule rule(oss::BitString mode, int choice) {
    oss::AccessControlRule value;
    value.accessMode = std::move(mode);
    value.securityCondition.choice = choice;
    value.securityCondition.authIdValue = {0x01};
    return value;
}

TEST(PinRules, ShowWhatTheApplicationTreeExpresses) {
    oss::AccessControlRule nestedAlways =
        rule(bits(3, {0x80}), oss::SecurityCondition::orCondition);
    nestedAlways.securityCondition.operands = {
        rule({}, oss::SecurityCondition::always).securityCondition};
    const app::AccessControlRules shown = decodeExpressibleRules(
        {rule(bits(3, {0x20}), oss::SecurityCondition::always),
         rule(bits(5, {0x08}), oss::SecurityCondition::always), // a mode of a newer card format
         rule(bits(2, {0x40}), oss::SecurityCondition::authId), nestedAlways});
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].getAccessMode(), app::AccessControlRule::Execute);
    EXPECT_TRUE(
        boost::dynamic_pointer_cast<app::AlwaysSecurityCondition>(shown[0].getSecurityCondition()));
    EXPECT_EQ(shown[1].getAccessMode(), app::AccessControlRule::Update);
}

TEST(NewPin, EncodesTheAttributesItHasAndNoRules) {
    const auto pin = newPin();
    pin->setLabel("PIN");
    pin->setFlags(0x03);
    pin->setAuthId(mw::ByteBuffer{0x05});
    pin->setPinFlags(0x0C0);
    pin->setMinLength(4);
    pin->setStoredLength(8);
    pin->setPinReference(0x85);
    const oss::PinObject value = pin->encodeAuthenticationType().pinValue;
    EXPECT_TRUE(value.commonObjectAttributes.flags == bits(2, {0xC0}));
    EXPECT_FALSE(value.commonObjectAttributes.accessControlRules);
    EXPECT_EQ(value.classAttributes.authId, oss::Bytes{0x05});
    EXPECT_EQ(value.typeAttributes.pinFlags, bits(12, {0x0C, 0x00}));
    EXPECT_EQ(value.typeAttributes.pinReference.value_or(0), 0x85);
    EXPECT_FALSE(value.typeAttributes.maxLength || value.typeAttributes.padChar ||
                 value.typeAttributes.path);

    pin->setFlags(0x04);
    EXPECT_APP_TEXT(pin->encodeAuthenticationType(), "Common Object flags not PKCS#15 conform");
    pin->setFlags(0x01);
    pin->setAccessControlRules({});
    EXPECT_APP_TEXT(pin->encodeAuthenticationType(),
                    "access control rules of a pin cannot be written");
}

bool contains(const oss::Bytes& haystack, const oss::Bytes& needle) {
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
           haystack.end();
}

TEST(ReadPin, ChangingOneAttributeKeepsWhatTheModelDoesNotHold) {
    oss::AuthenticationType entry;
    oss::PinObject& value = entry.pinValue;
    value.commonObjectAttributes.label = "PIN";
    value.commonObjectAttributes.labelEncoding = {0x14, 0x03, 'P', 'I', 'N'}; // T61String
    value.commonObjectAttributes.userConsent = 3;
    value.classAttributes.authId = {0x01};
    value.typeAttributes.pinFlags = bits(12, {0x0C, 0x00});
    value.typeAttributes.lastPinChange = "20240101000000Z";
    value.typeAttributes.unknownComponents = {{0x85, 0x01, 0x07}};
    P15Pin pin(nullptr, {}, 0, entry, mw::ByteBuffer(oss::encode(entry)));

    pin.setPinFlags(0x0C1);
    const oss::Bytes rewritten = oss::encode(pin.encodeAuthenticationType());
    EXPECT_TRUE(contains(rewritten, {0x03, 0x03, 0x04, 0x0C, 0x10})) << "the new flags";
    EXPECT_TRUE(contains(rewritten, {0x14, 0x03, 'P', 'I', 'N'})) << "the label's string type";
    EXPECT_TRUE(contains(rewritten, {0x02, 0x01, 0x03})) << "userConsent";
    EXPECT_TRUE(contains(rewritten, {0x18, 0x0F, '2', '0', '2', '4'})) << "lastPinChange";
    EXPECT_TRUE(contains(rewritten, {0x85, 0x01, 0x07})) << "a component of a later version";
}

TEST(NewPin, OperationsNeedTheirAttributesAndSendNothingWithout) {
    const auto pin = newPin();
    const UnconnectedChannel noCard;
    const mw::ByteBuffer value{'1', '2', '3', '4'};
    const char* const needsPadding =
        "Pin reference, max length and pad char required but not found";
    pin->setPinReference(1);
    pin->setMaxLength(8);
    EXPECT_APP_TEXT(pin->authenticate(noCard, value), needsPadding); // no pad char
    EXPECT_APP_TEXT(pin->change(noCard, value, value), needsPadding);
    EXPECT_APP_TEXT(pin->unblock(noCard, value), needsPadding);
    const auto unreferenced = newPin();
    EXPECT_APP_TEXT(unreferenced->deauthenticate(noCard), "Pin reference required but not found");
    EXPECT_APP_TEXT(unreferenced->getPinInfo(noCard), "pinReference path required but not found");
}

TEST(NewPin, PadsToMaxLengthAndCutsLongerValues) {
    const auto pin = newPin();
    pin->setMaxLength(8);
    pin->setPadChar(mw::ByteBuffer{0xFF});
    EXPECT_EQ(pin->pad(mw::ByteBuffer{'1', '2', '3', '4'}),
              (mw::ByteBuffer{'1', '2', '3', '4', 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(pin->pad(mw::ByteBuffer{'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'}),
              (mw::ByteBuffer{'0', '1', '2', '3', '4', '5', '6', '7'}));
    pin->setMaxLength(0);
    EXPECT_TRUE(pin->pad(mw::ByteBuffer{'1'}).empty());
}

mw::ByteBuffer filled(std::size_t size, unsigned char first, unsigned char rest) {
    mw::ByteBuffer bytes(size);
    std::fill(bytes.begin(), bytes.end(), rest);
    bytes.data()[0] = first;
    return bytes;
}

TEST(RsaKeyModel, ModulusLengthAndExponentSizesAreChecked) {
    P15RsaPrivateKey key{boost::weak_ptr<const app::pkcs15::fs::PrKDF>()};
    key.setModulusLength(2048);
    EXPECT_EQ(failureOf([&] { key.setModulusLength(4096); }),
              Failure("invalid modulus size", 4096));
    EXPECT_EQ(failureOf([&] { key.setModulusLength(1000); }),
              Failure("invalid modulus size", 1000));
    EXPECT_EQ(key.getModulusLength(), 2048) << "a failed setter changes nothing";

    key.setPublicExponent(mw::ByteBuffer{0x01, 0x00, 0x01});
    EXPECT_EQ(failureOf([&] {
                  key.setPublicExponent(mw::ByteBuffer{0x01, 0x00, 0x00, 0x01});
              }),
              Failure("invalid public exponent size", 4));
    EXPECT_EQ(key.getPublicExponent(), (mw::ByteBuffer{0x01, 0x00, 0x01}));
}

TEST(RsaKeyModel, TheModulusLengthComesFromTheProductOfThePrimes) {
    P15RsaPrivateKey key{boost::weak_ptr<const app::pkcs15::fs::PrKDF>()};
    const mw::ByteBuffer p = filled(64, 0xC0, 0x01), q = filled(64, 0xF0, 0x03);
    const mw::ByteBuffer dp{1}, dq{2}, pInv{3}, qInv{4};
    key.setCrtComponents(p, q, dp, dq, pInv, qInv);
    EXPECT_EQ(key.getModulusLength(), 1024);
    EXPECT_EQ(key.getQ(), q);
    EXPECT_EQ(key.getQInv(), qInv);

    // Top bits clear: the product has 1021 bits.
    const mw::ByteBuffer small = filled(64, 0x40, 0x01);
    EXPECT_EQ(failureOf([&] { key.setCrtComponents(small, small, qInv, pInv, dq, dp); }),
              Failure("invalid modulus size", 1021));
    EXPECT_EQ(key.getP(), p) << "nothing is stored from a refused set";
    EXPECT_EQ(key.getDp(), dp);

    const mw::ByteBuffer wide = filled(128, 0xFF, 0x01);
    key.setCrtComponents(wide, wide, dp, dq, pInv, qInv);
    EXPECT_EQ(key.getModulusLength(), 2048);
}

TEST(RsaKeyModel, APublicModulusIsSizedByItsBytes) {
    P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    const mw::ByteBuffer full = filled(256, 0x80, 0x00);
    key.setModulus(full);
    EXPECT_EQ(failureOf([&] { key.setModulus(filled(255, 0x80, 0x00)); }),
              Failure("invalid modulus size", 2040));
    EXPECT_EQ(key.getModulus(), full);
}

TEST(RsaKeyModel, ANewEntryCarriesNoKeyReferenceZeroAndNoKeyInfo) {
    P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    key.setLabel("k");
    key.setModulusLength(1024);
    const auto entry = key.encodePublicKeyType();
    EXPECT_FALSE(entry.publicRSAKeyValue.classAttributes.keyReference);
    EXPECT_FALSE(entry.publicRSAKeyValue.typeAttributes.keyInfo);
    EXPECT_EQ(entry.publicRSAKeyValue.typeAttributes.modulusLength, 1024);
}

oss::CertificateType certificateEntry(const oss::Bytes& trustedUsage) {
    oss::CertificateType entry;
    entry.x509CertificateValue.classAttributes.iD = {0x45};
    entry.x509CertificateValue.classAttributes.trustedUsage = trustedUsage;
    entry.x509CertificateValue.typeAttributes.value.indirectValue.pathValue.path = {0x0D, 0x01};
    return entry;
}

P15X509Certificate certificateOf(const oss::CertificateType& entry) {
    return P15X509Certificate(boost::weak_ptr<const app::pkcs15::fs::CDF>(), entry,
                              mw::ByteBuffer(oss::encode(entry)));
}

TEST(ValueObjectCodec, CertificateKeyUsageHasNineBitsAndKeepsTheExtendedUsage) {
    const P15X509Certificate nineBits =
        certificateOf(certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x07, 0xFF, 0x80}));
    EXPECT_EQ(nineBits.getKeyUsage().value_or(0), 0x1FF);
    EXPECT_APP_TEXT(certificateOf(certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x06, 0xFF, 0xC0})),
                    "Certificate::KeyUsageFlags not PKCS#15 conform");

    const oss::Bytes extKeyUsage{0x30, 0x0A, 0x06, 0x08, 0x2B, 0x06,
                                 0x01, 0x05, 0x05, 0x07, 0x03, 0x02};
    oss::Bytes eightBits{0xA1, 0x10, 0x03, 0x02, 0x00, 0xFF};
    eightBits.insert(eightBits.end(), extKeyUsage.begin(), extKeyUsage.end());
    const oss::CertificateType read = certificateEntry(eightBits);
    P15X509Certificate certificate = certificateOf(read);
    EXPECT_EQ(certificate.getKeyUsage().value_or(0), 0x1FE);
    EXPECT_EQ(certificate.encodeCertificateType(certificate.getValueLocation()), read)
        << "an entry nothing was set on is given back as read";

    certificate.setKeyUsage(ICertificate::Encrypt);
    oss::Bytes changed{0xA1, 0x11, 0x03, 0x03, 0x07, 0x80, 0x00};
    changed.insert(changed.end(), extKeyUsage.begin(), extKeyUsage.end());
    EXPECT_EQ(certificate.encodeCertificateType(certificate.getValueLocation())
                  .x509CertificateValue.classAttributes.trustedUsage.value_or(oss::Bytes()),
              changed);
    certificate.setKeyUsage(0x200);
    EXPECT_APP_TEXT(certificate.encode(), "Certificate key usage flags not PKCS#15 conform.");
}

// Common object flags a certificate or data object cannot hold are invalid
// data, so that a host skipping malformed entries skips them; a key's are
// the application's runtime error.
TEST(ValueObjectCodec, CommonFlagsOfValueObjectsFailAsInvalidData) {
    oss::CertificateType certificate = certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x07, 0xFF, 0x80});
    certificate.x509CertificateValue.commonObjectAttributes.flags = bits(3, {0x20});
    EXPECT_THROW(certificateOf(certificate), app::InvalidDataException);
    oss::DataType data;
    data.opaqueDOValue.commonObjectAttributes.flags = bits(3, {0x20});
    data.opaqueDOValue.typeAttributes.indirectValue.pathValue.path = {0x0D, 0x02};
    EXPECT_THROW(P15DataObject(boost::weak_ptr<const app::pkcs15::fs::DODF>(), data,
                               mw::ByteBuffer(oss::encode(data))),
                 app::InvalidDataException);
    try {
        decodeFlags(commonObjectFlags, bits(3, {0}));
        ADD_FAILURE() << "no failure";
    } catch (const app::ApplicationException& e) {
        EXPECT_EQ(p15test::familyOf(e), "ApplicationException");
    }
}

TEST(ValueObjectCodec, OnlyOpaqueDataObjectsWithTheirValueInAFileAreTaken) {
    oss::DataType direct;
    direct.opaqueDOValue.typeAttributes.choice = oss::ObjectValue::direct;
    direct.opaqueDOValue.typeAttributes.raw = {0xA0, 0x01, 0x00};
    EXPECT_APP_TEXT(
        P15DataObject(boost::weak_ptr<const app::pkcs15::fs::DODF>(), direct, mw::ByteBuffer{0x30}),
        "PKCS#15 DataObject of unknown type found");
}

oss::TokenInfo tokenInfo() {
    oss::TokenInfo value;
    value.serialNumber = oss::Bytes{0x01, 0x02};
    value.tokenflags.bitCount = 4;
    value.tokenflags.octets = {0x20};
    oss::AlgorithmInfo rsa;
    rsa.reference = 7;
    rsa.algorithm = 1;
    rsa.parameters = {0x05, 0x00};
    rsa.supportedOperations.bitCount = 8;
    rsa.supportedOperations.octets = {0x45};
    rsa.algId = oss::oidFromText("1.2.840.113549.1.1.1");
    value.supportedAlgorithms = std::vector<oss::AlgorithmInfo>{rsa};
    return value;
}

P15ApplicationInfo infoOf(const oss::TokenInfo& value) {
    return P15ApplicationInfo(boost::weak_ptr<const app::pkcs15::fs::TokenInfo>(), value,
                              mw::ByteBuffer(oss::encode(value)));
}

TEST(ValueObjectCodec, TokenInfoRefusesWhatItCannotHoldAndKeepsTheAlgorithmsItLists) {
    oss::TokenInfo fiveFlags = tokenInfo();
    fiveFlags.tokenflags.bitCount = 5;
    EXPECT_APP_TEXT(infoOf(fiveFlags), "Token flags not PKCS#15 compatible");
    oss::TokenInfo referencedTime = tokenInfo();
    referencedTime.lastUpdate = oss::LastUpdate();
    referencedTime.lastUpdate->choice = oss::LastUpdate::referencedTime;
    referencedTime.lastUpdate->raw = {0x30, 0x04, 0x04, 0x02, 0x50, 0x33}; // a Path
    EXPECT_APP_TEXT(infoOf(referencedTime),
                    "TokenInfo: last update by referenced time not supported.");

    P15ApplicationInfo info = infoOf(tokenInfo());
    EXPECT_EQ(info.getTokenFlags(), app::object::IApplicationInfo::PrnGeneration);
    EXPECT_EQ(info.getLabel().value_or(""), "Arvel PKCS15 Application") << "the default label";
    info.setSupportedAlgorithms({"1.2.840.113549.1.1.11", "1.2.840.113549.1.1.1"});
    const std::vector<oss::AlgorithmInfo> algorithms = *info.encodeTokenInfo().supportedAlgorithms;
    ASSERT_EQ(algorithms.size(), 2u);
    EXPECT_EQ(algorithms[0].reference, 8) << "a new algorithm takes the next reference";
    EXPECT_EQ(algorithms[1], tokenInfo().supportedAlgorithms->front());
    info.setTokenFlags(0x10);
    EXPECT_APP_TEXT(info.encode(), "TokenInfo TokenFlags not PKCS#15 conform.");
}

} // namespace
