#include "UnconnectedChannel.hpp"
#include "app/ApplicationException.hpp"
#include "app/SecurityConditions.hpp"
#include "app/TransformSecurityCondition.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "mw/Hex.hpp"
#include "tests/support/AppErrors.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <functional>
#include <gtest/gtest.h>

namespace {

namespace oss = app::pkcs15::oss;
namespace cs = card::service;
using namespace app::pkcs15::object;
using app::object::ICertificate;

using p15test::appError;
using p15test::Failure;

namespace fs = app::pkcs15::fs;
// No directory file: these objects are never written.
template <class File> boost::weak_ptr<const File> none() {
    return {};
}

// A PIN no card has seen; its service is never reached by these tests.
boost::shared_ptr<P15Pin> newPin() {
    return boost::make_shared<P15Pin>(nullptr, none<fs::AODF>(), 0);
}

// Each flag word at its widest: the full value encodes to the declared length
// and back, one bit more is refused both ways; a shorter string reads as its
// leading bits.
TEST(FlagWords, RoundTripAtTheirDeclaredLengthAndRefuseOneBitMore) {
    const struct {
        const FlagWord& word;
        std::uint32_t all;
        oss::BitString full, tooLong;
        const char *encodeError, *decodeError;
    } rows[] = {
        // clang-format off
        {commonObjectFlags, 0x03, oss::BitString{{0xC0}, 2}, oss::BitString{{0}, 3}, "Common Object flags not PKCS#15 conform", "CommonObject Flags not PKCS#15 conform"},
        {pinFlags, 0xFFF, oss::BitString{{0xFF, 0xF0}, 12}, oss::BitString{{0, 0}, 13}, "Pin flags not PKCS#15 conform", "Pin Flags not PKCS#15 conform"},
        {keyUsageFlags, 0x3FF, oss::BitString{{0xFF, 0xC0}, 10}, oss::BitString{{0xFF, 0xE0}, 11}, "Private RSA key usage flags not PKCS#15 conform.", "PrivateKey::UsageFlags not PKCS#15 conform"},
        {keyAccessFlags, 0x1F, oss::BitString{{0xF8}, 5}, oss::BitString{{0x80}, 6}, "Private RSA key access flags not PKCS#15 conform.", "PrivateKey::AccessFlags not PKCS#15 conform"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.encodeError);
        EXPECT_EQ(encodeFlags(row.word, row.all), row.full);
        EXPECT_EQ(decodeFlags(row.word, row.full), row.all);
        EXPECT_APP_TEXT(encodeFlags(row.word, row.all + 1), row.encodeError);
        EXPECT_APP_TEXT(decodeFlags(row.word, row.tooLong), row.decodeError);
    }
    EXPECT_EQ(encodeFlags(keyUsageFlags, 0), (oss::BitString{{0x00, 0x00}, 10}))
        << "zero keeps its length";
    EXPECT_EQ(decodeFlags(keyUsageFlags, (oss::BitString{{0xFF}, 8})), 0x3FC);
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

// A PIN's access rules are never written. Its operations need their
// attributes, checked before anything is sent: the channel reaches no card.
// Values are padded to the maximum length, longer ones cut.
TEST(NewPin, KeepsItsRulesAndOperationsNeedTheirAttributesBeforeTheCard) {
    auto pin = newPin();
    pin->setAccessControlRules({});
    EXPECT_APP_TEXT(pin->encodeAuthenticationType(),
                    "access control rules of a pin cannot be written");

    pin = newPin();
    const UnconnectedChannel noCard;
    const mw::ByteBuffer pinValue{'1', '2', '3', '4'};
    pin->setPinReference(1);
    pin->setMaxLength(8); // but no pad char
    for (const auto& operation :
         std::vector<std::function<void()>>{[&] { pin->authenticate(noCard, pinValue); },
                                            [&] { pin->change(noCard, pinValue, pinValue); },
                                            [&] { pin->unblock(noCard, pinValue); }}) {
        EXPECT_EQ(appError(operation).first,
                  "Pin reference, max length and pad char required but not found");
    }
    EXPECT_APP_TEXT(newPin()->deauthenticate(noCard), "Pin reference required but not found");
    EXPECT_APP_TEXT(newPin()->getPinInfo(noCard), "pinReference path required but not found");

    pin->setMaxLength(4);
    pin->setPadChar(mw::ByteBuffer{0xFF});
    EXPECT_EQ(pin->pad(mw::ByteBuffer{'1', '2'}), (mw::ByteBuffer{'1', '2', 0xFF, 0xFF}));
    EXPECT_EQ(pin->pad(mw::ByteBuffer{'1', '2', '3', '4', '5'}), pinValue);
    pin->setMaxLength(0);
    EXPECT_TRUE(pin->pad(mw::ByteBuffer{'1'}).empty());
}

mw::ByteBuffer filled(std::size_t size, unsigned char first, unsigned char rest) {
    mw::ByteBuffer bytes(size);
    std::fill(bytes.begin(), bytes.end(), rest);
    bytes.data()[0] = first;
    return bytes;
}

// Sizes outside 1024/1536/2048 bits (set, or of the primes' product) and
// exponents other than three bytes are refused with the size, and a refused
// setter changes nothing.
TEST(RsaKeyModel, ModulusLengthAndExponentSizesAreChecked) {
    P15RsaPrivateKey key{none<fs::PrKDF>()};
    key.setModulusLength(2048);
    key.setPublicExponent(mw::ByteBuffer{0x01, 0x00, 0x01});
    EXPECT_EQ(appError([&] { key.setModulusLength(1000); }), Failure("invalid modulus size", 1000));
    EXPECT_EQ(appError([&] { key.setPublicExponent(mw::ByteBuffer(4)); }),
              Failure("invalid public exponent size", 4));
    EXPECT_EQ(key.getModulusLength(), 2048);
    EXPECT_EQ(key.getPublicExponent(), (mw::ByteBuffer{0x01, 0x00, 0x01}));

    P15RsaPublicKey publicKey{none<fs::PuKDF>()};
    EXPECT_EQ(appError([&] { publicKey.setModulus(filled(255, 0x80, 0x00)); }),
              Failure("invalid modulus size", 2040));
    publicKey.setModulusLength(1024);
    const auto entry = publicKey.encodePublicKeyType().publicRSAKeyValue;
    EXPECT_FALSE(entry.classAttributes.keyReference) << "a new entry has no key reference 0";

    // The modulus length of an imported key comes from the product of the primes.
    const mw::ByteBuffer p = filled(64, 0xC0, 0x01), q = filled(64, 0xF0, 0x03);
    const mw::ByteBuffer dp{1}, dq{2}, pInv{3}, qInv{4};
    key.setCrtComponents(p, q, dp, dq, pInv, qInv);
    EXPECT_EQ(key.getModulusLength(), 1024);

    // Top bits clear: the product has 1021 bits.
    const mw::ByteBuffer small = filled(64, 0x40, 0x01);
    EXPECT_EQ(appError([&] { key.setCrtComponents(small, small, qInv, pInv, dq, dp); }),
              Failure("invalid modulus size", 1021));
    EXPECT_EQ(key.getP(), p) << "nothing is stored from a refused set";
    EXPECT_EQ(key.getDp(), dp);
}

oss::CertificateType certificateEntry(const oss::Bytes& trustedUsage) {
    oss::CertificateType entry;
    entry.x509CertificateValue.classAttributes.iD = {0x45};
    entry.x509CertificateValue.classAttributes.trustedUsage = trustedUsage;
    entry.x509CertificateValue.typeAttributes.value.indirectValue.pathValue.path = {0x0D, 0x01};
    return entry;
}

P15X509Certificate certificateOf(const oss::CertificateType& entry) {
    return P15X509Certificate(none<fs::CDF>(), entry, mw::ByteBuffer(oss::encode(entry)));
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

// Common object flags a certificate or data object cannot hold, and a data
// object without its value in a file, are invalid data, so that a host
// skipping malformed entries skips them; a key's flags are the application's
// runtime error.
TEST(ValueObjectCodec, EntriesTheModelCannotHoldAreInvalidData) {
    const auto invalid = [](const std::function<void()>& make) {
        return appError<app::InvalidDataException>(make).first;
    };
    oss::CertificateType certificate = certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x07, 0xFF, 0x80});
    certificate.x509CertificateValue.commonObjectAttributes.flags = oss::BitString{{0x20}, 3};
    EXPECT_EQ(invalid([&] { certificateOf(certificate); }),
              "CommonObject Flags not PKCS#15 conform");
    oss::DataType data;
    data.opaqueDOValue.commonObjectAttributes.flags = oss::BitString{{0x20}, 3};
    data.opaqueDOValue.typeAttributes.indirectValue.pathValue.path = {0x0D, 0x02};
    EXPECT_EQ(
        invalid([&] { P15DataObject(none<fs::DODF>(), data, mw::ByteBuffer(oss::encode(data))); }),
        "CommonObject Flags not PKCS#15 conform");
    data.opaqueDOValue.typeAttributes.choice = oss::ObjectValue::direct;
    data.opaqueDOValue.typeAttributes.raw = {0xA0, 0x01, 0x00};
    EXPECT_EQ(invalid([&] { P15DataObject(none<fs::DODF>(), data, {0x30}); }),
              "PKCS#15 DataObject of unknown type found");
    try {
        decodeFlags(commonObjectFlags, oss::BitString{{0}, 3});
        ADD_FAILURE() << "no failure";
    } catch (const app::ApplicationException& e) {
        EXPECT_EQ(p15test::familyOf(e), "ApplicationException");
    }
}

// Four token flags and one RSA algorithm, reference 7.
oss::TokenInfo tokenInfo() {
    oss::TokenInfo value;
    value.serialNumber = oss::Bytes{0x01, 0x02};
    value.tokenflags = oss::BitString{{0x20}, 4};
    value.supportedAlgorithms = std::vector<oss::AlgorithmInfo>{
        {7, 1, {0x05, 0x00}, {{0x45}, 8}, oss::oidFromText("1.2.840.113549.1.1.1"), {}}};
    return value;
}

P15ApplicationInfo infoOf(const oss::TokenInfo& value) {
    return P15ApplicationInfo(none<fs::TokenInfo>(), value, mw::ByteBuffer(oss::encode(value)));
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
    info.setSupportedAlgorithms({"1.2.840.113549.1.1.11", "1.2.840.113549.1.1.1"});
    const std::vector<oss::AlgorithmInfo> algorithms = *info.encodeTokenInfo().supportedAlgorithms;
    ASSERT_EQ(algorithms.size(), 2u);
    EXPECT_EQ(algorithms[0].reference, 8) << "a new algorithm takes the next reference";
    EXPECT_EQ(algorithms[1], tokenInfo().supportedAlgorithms->front());
    info.setTokenFlags(0x10);
    EXPECT_APP_TEXT(info.encode(), "TokenInfo TokenFlags not PKCS#15 conform.");
}

// Components of a later version in every sequence of an entry.
template <class Object> Object& laterVersion(Object& object) {
    object.commonObjectAttributes.unknownComponents = {{0x9F, 0x30, 0x01, 0x11}};
    object.classAttributes.unknownComponents = {{0x9F, 0x31, 0x01, 0x22}};
    object.unknownComponents = {{0xA5, 0x03, 0x02, 0x01, 0x33}};
    return object;
}

template <class Key> void rsaKey(Key& key) {
    key.classAttributes.iD = {0x45};
    key.classAttributes.usage = oss::BitString{{0x20, 0x00}, 10};
    key.classAttributes.keyReference = 0x81;
    key.typeAttributes.value.indirectValue.pathValue.path = {0x0E, 0x01};
    key.typeAttributes.modulusLength = 1024;
    laterVersion(key).typeAttributes.unknownComponents = {{0x9F, 0x32, 0x01, 0x44}};
}

// A key reference is one byte on the card: FF is the last one an entry can
// name; one beyond it (or below 0) makes the entry invalid instead of naming
// the key the low byte names.
TEST(RsaKeyModel, KeyReferencesBeyondOneByteMakeTheEntryInvalid) {
    for (const oss::Integer reference : {0xFF, 0x100, 0x181, -0x81}) {
        SCOPED_TRACE(reference);
        oss::PrivateKeyType entry;
        rsaKey(entry.privateRSAKeyValue);
        entry.privateRSAKeyValue.classAttributes.keyReference = reference;
        const mw::ByteBuffer encoding(oss::encode(entry));
        if (reference == 0xFF) {
            P15RsaPrivateKey key(none<fs::PrKDF>(), entry, encoding);
            EXPECT_EQ(key.getKeyReference().keyReference, 0xFF);
        } else {
            EXPECT_EQ(appError([&] { P15RsaPrivateKey(none<fs::PrKDF>(), entry, encoding); }),
                      Failure("key reference beyond one byte", reference));
        }
    }
}

// Each kind's model, read from an entry with them and relabelled, encodes
// the entry relabelled, all else byte for byte.
TEST(UnmodelledComponents, EveryEntryKindKeepsThemByteForByteWhenRelabelled) {
    const auto encoding = [](const auto& entry) { return mw::ByteBuffer(oss::encode(entry)); };
    const auto hex = [&](const auto& entry) { return mw::toHex(encoding(entry)); };
    oss::AuthenticationType pin;
    pin.pinValue.classAttributes.authId = {0x01};
    pin.pinValue.typeAttributes.pinFlags = oss::BitString{{0x0C, 0x00}, 12};
    pin.pinValue.typeAttributes.lastPinChange = "20240101000000Z";
    pin.pinValue.typeAttributes.unknownComponents = {{0x85, 0x01, 0x07}};
    laterVersion(pin.pinValue).commonObjectAttributes.userConsent = 3;
    P15Pin pinModel(nullptr, none<fs::AODF>(), 0, pin, encoding(pin));
    pinModel.setLabel("renamed");
    pin.pinValue.commonObjectAttributes.label = "renamed";
    EXPECT_EQ(hex(pinModel.encodeAuthenticationType()), hex(pin));

    oss::CertificateType certificate = certificateEntry({0xA1, 0x05, 0x03, 0x03, 0x07, 0xFF, 0x80});
    laterVersion(certificate.x509CertificateValue).typeAttributes.unknownComponents = {
        {0x9F, 0x32, 0x01, 0x44}};
    P15X509Certificate certificateModel = certificateOf(certificate);
    certificateModel.setLabel("renamed");
    certificate.x509CertificateValue.commonObjectAttributes.label = "renamed";
    EXPECT_EQ(mw::toHex(certificateModel.encode()), hex(certificate));

    oss::DataType data;
    data.opaqueDOValue.typeAttributes.indirectValue.pathValue.path = {0x0D, 0x02};
    laterVersion(data.opaqueDOValue);
    P15DataObject dataModel(none<fs::DODF>(), data, encoding(data));
    dataModel.setLabel("renamed");
    data.opaqueDOValue.commonObjectAttributes.label = "renamed";
    EXPECT_EQ(mw::toHex(dataModel.encode()), hex(data));

    oss::PrivateKeyType privateKey;
    rsaKey(privateKey.privateRSAKeyValue);
    P15RsaPrivateKey privateModel(none<fs::PrKDF>(), privateKey, encoding(privateKey));
    privateModel.setLabel("renamed");
    privateKey.privateRSAKeyValue.commonObjectAttributes.label = "renamed";
    EXPECT_EQ(hex(privateModel.encodePrivateKeyType()), hex(privateKey));

    oss::PublicKeyType publicKey;
    rsaKey(publicKey.publicRSAKeyValue);
    P15RsaPublicKey publicModel(none<fs::PuKDF>(), publicKey, encoding(publicKey));
    publicModel.setLabel("renamed");
    publicKey.publicRSAKeyValue.commonObjectAttributes.label = "renamed";
    EXPECT_EQ(hex(publicModel.encodePublicKeyType()), hex(publicKey));
}

} // namespace
