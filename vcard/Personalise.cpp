#include "vcard/Personalise.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/Algorithms.hpp"

#include <cryptopp/osrng.h>

#include <algorithm>
#include <stdexcept>

namespace vcard {

namespace oss = app::pkcs15::oss;

namespace {

constexpr std::uint16_t odfFid = 0x5031;
constexpr std::uint16_t tokenInfoFid = 0x5032;
constexpr std::uint16_t prkdfFid = 0x4400;
constexpr std::uint16_t pukdfFid = 0x4401;
constexpr std::uint16_t cdfFid = 0x4404;
constexpr std::uint16_t dodfFid = 0x4407;
constexpr std::uint16_t aodfFid = 0x4408;
constexpr std::uint16_t cardStatusFid = 0x9999;
constexpr std::uint16_t dirFid = 0x2F00;
constexpr std::uint16_t atrInfoFid = 0x2F01;
constexpr std::uint16_t certificateDf = 0xDF02;
constexpr std::size_t serialLength = 8;

// PinFlags bits (PKCS#15 numbering, bit 0 first) and the other flag words.
constexpr unsigned pinFlagInitialized = 4;
constexpr unsigned pinFlagNeedsPadding = 5;
constexpr unsigned pinFlagUnblockingPin = 6;
constexpr unsigned pinFlagSoPin = 7;
constexpr unsigned objectFlagModifiable = 1;
constexpr unsigned tokenFlagPrnGeneration = 2;
constexpr unsigned operationComputeSignature = 1;
constexpr unsigned operationDecipher = 5;
constexpr unsigned operationGenerateKey = 7;
constexpr oss::Integer pinTypeAsciiNumeric = 1;
constexpr oss::Integer mechanismRsaPkcs = 1;

oss::BitString bits(std::size_t bitCount, std::initializer_list<unsigned> set) {
    oss::BitString string;
    string.bitCount = bitCount;
    string.octets.assign((bitCount + 7) / 8, 0);
    for (unsigned bit : set)
        string.octets[bit / 8] |= static_cast<std::uint8_t>(0x80 >> (bit % 8));
    return string;
}

Bytes fidBytes(std::uint16_t fid) {
    return {static_cast<std::uint8_t>(fid >> 8), static_cast<std::uint8_t>(fid)};
}

AccessCondition userPin() {
    return AccessCondition::pin(layout::userPinReference);
}
AccessCondition soPin() {
    return AccessCondition::pin(layout::soPinReference);
}

std::unique_ptr<CardFile> df(std::uint16_t fid, AccessCondition createCondition, Bytes name = {}) {
    auto file = std::make_unique<CardFile>();
    file->fid = fid;
    file->kind = FileKind::Df;
    file->name = std::move(name);
    file->security = SecurityAttributes(AccessCondition::never(), std::move(createCondition),
                                        AccessCondition::never());
    return file;
}

/// A transparent EF of the given size holding content, padded with 00.
std::unique_ptr<CardFile> ef(std::uint16_t fid, std::size_t size, const Bytes& content,
                             AccessCondition updateCondition) {
    if (content.size() > size)
        throw std::logic_error("personalisation content does not fit its file");
    auto file = std::make_unique<CardFile>();
    file->fid = fid;
    file->content = content;
    file->content.resize(size, 0x00);
    file->security = SecurityAttributes(AccessCondition::always(), std::move(updateCondition),
                                        AccessCondition::never());
    return file;
}

template <class T> void appendEncoded(Bytes& out, const T& value) {
    Bytes encoded = oss::encode(value);
    out.insert(out.end(), encoded.begin(), encoded.end());
}

Bytes dirContent() {
    oss::DIRRecord record;
    record.aid = pkcs15ApplicationId();
    record.label = "p15kit";
    record.path = {0x3F, 0x00, 0x50, 0x15};
    return oss::encode(record);
}

Bytes odfContent() {
    const std::pair<int, std::uint16_t> entries[] = {{oss::PKCS15Objects::privateKeys, prkdfFid},
                                                     {oss::PKCS15Objects::publicKeys, pukdfFid},
                                                     {oss::PKCS15Objects::certificates, cdfFid},
                                                     {oss::PKCS15Objects::dataObjects, dodfFid},
                                                     {oss::PKCS15Objects::authObjects, aodfFid}};
    Bytes content;
    for (const auto& [choice, fid] : entries) {
        oss::PKCS15Objects entry;
        entry.choice = choice;
        entry.value.choice = oss::PathOrObjects::path;
        entry.value.pathValue.path = fidBytes(fid);
        appendEncoded(content, entry);
    }
    return content;
}

oss::AlgorithmInfo rsaAlgorithm(oss::Integer reference, oss::Integer cardReference,
                                std::initializer_list<unsigned> operations) {
    oss::AlgorithmInfo rsa;
    rsa.reference = reference;
    rsa.algorithm = mechanismRsaPkcs;
    rsa.parameters = {0x05, 0x00};
    rsa.supportedOperations = bits(8, operations);
    rsa.algId = oss::oidFromText("1.2.840.113549.1.1.1");
    rsa.algRef = cardReference;
    return rsa;
}

/// A native card offers everything under reference 01; an iso card has a reference of its own
/// for each operation, which MANAGE SECURITY ENVIRONMENT must name.
std::vector<oss::AlgorithmInfo> supportedAlgorithms(CardProfile profile) {
    if (profile == CardProfile::Native)
        return {rsaAlgorithm(1, algorithm::rsaPkcs1,
                             {operationComputeSignature, operationDecipher, operationGenerateKey})};
    return {
        rsaAlgorithm(1, algorithm::isoRsaSign, {operationComputeSignature, operationGenerateKey}),
        rsaAlgorithm(2, algorithm::isoRsaDecipher, {operationDecipher})};
}

Bytes tokenInfoContent(const std::string& label, CardProfile profile) {
    oss::TokenInfo info;
    info.version = 0;
    Bytes serial(serialLength);
    CryptoPP::AutoSeededRandomPool rng;
    rng.GenerateBlock(serial.data(), serial.size());
    info.serialNumber = serial;
    info.manufacturerID = "p15kit";
    info.label = label;
    info.tokenflags = bits(tokenFlagPrnGeneration + 1, {tokenFlagPrnGeneration});
    info.supportedAlgorithms = supportedAlgorithms(profile);
    return oss::encode(info);
}

struct PinEntry {
    const char* label;
    std::uint8_t reference;
    /// unblockingPin or soPin, for the PINs that have such a role.
    boost::optional<unsigned> roleFlag;
    boost::optional<std::uint8_t> unblockedBy;
};

Bytes aodfEntry(const PinEntry& pin) {
    oss::AuthenticationType entry;
    entry.choice = oss::AuthenticationType::pin;
    oss::PinObject& object = entry.pinValue;
    object.commonObjectAttributes.label = std::string(pin.label);
    object.commonObjectAttributes.flags = bits(2, {objectFlagModifiable});
    if (pin.unblockedBy)
        object.commonObjectAttributes.authId = Bytes{*pin.unblockedBy};
    // The plugin takes the card PIN reference from the first byte of the authId.
    object.classAttributes.authId = {pin.reference};
    oss::PinAttributes& attributes = object.typeAttributes;
    attributes.pinFlags = bits(12, {pinFlagInitialized, pinFlagNeedsPadding});
    if (pin.roleFlag)
        attributes.pinFlags.octets[*pin.roleFlag / 8] |=
            static_cast<std::uint8_t>(0x80 >> (*pin.roleFlag % 8));
    attributes.pinType = pinTypeAsciiNumeric;
    attributes.minLength = 4;
    attributes.storedLength = layout::pinLength;
    attributes.maxLength = static_cast<oss::Integer>(layout::pinLength);
    attributes.pinReference = pin.reference;
    attributes.padChar = Bytes{layout::pinPadding};
    return oss::encode(entry);
}

Bytes aodfContent() {
    const PinEntry pins[] = {
        {"User PIN", layout::userPinReference, boost::none, layout::unblockingPinReference},
        {"PUK", layout::unblockingPinReference, pinFlagUnblockingPin, boost::none},
        {"SO PIN", layout::soPinReference, pinFlagSoPin, boost::none}};
    Bytes content;
    for (const PinEntry& pin : pins) {
        Bytes entry = aodfEntry(pin);
        content.insert(content.end(), entry.begin(), entry.end());
    }
    return content;
}

Pin makePin(const std::string& digits, std::uint8_t tries,
            std::optional<std::uint8_t> unblockingPin) {
    const bool numeric =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!numeric || digits.size() < 4 || digits.size() > layout::pinLength)
        throw std::invalid_argument("a PIN must have 4 to 8 digits");
    Pin pin;
    pin.value.assign(digits.begin(), digits.end());
    pin.value.resize(layout::pinLength, layout::pinPadding);
    pin.maxTries = tries;
    pin.triesLeft = tries;
    pin.unblockingPin = unblockingPin;
    return pin;
}

std::unique_ptr<CardFile> applicationDf(const Personalisation& options) {
    auto app = df(layout::applicationDf, userPin(), pkcs15ApplicationId());
    const AccessCondition userOrSo = AccessCondition::anyOf({userPin(), soPin()});
    app->addChild(ef(odfFid, 256, odfContent(), soPin()));
    app->addChild(
        ef(tokenInfoFid, 512, tokenInfoContent(options.label, options.profile), userPin()));
    app->addChild(ef(aodfFid, 1024, aodfContent(), userOrSo));
    app->addChild(ef(prkdfFid, 4096, {}, userPin()));
    app->addChild(ef(pukdfFid, 4096, {}, userPin()));
    app->addChild(ef(cdfFid, 8192, {}, userPin()));
    app->addChild(ef(dodfFid, 8192, {}, userPin()));
    app->addChild(ef(cardStatusFid, 8, {}, AccessCondition::never()));
    app->addChild(df(certificateDf, userPin()));
    return app;
}

} // namespace

const Bytes& pkcs15ApplicationId() {
    static const Bytes aid = {0xA0, 0x00, 0x00, 0x00, 0x63, 0x50,
                              0x4B, 0x43, 0x53, 0x2D, 0x31, 0x35};
    return aid;
}

CardState personalise(const Personalisation& options) {
    CardState state;
    CardFile& mf = state.files.mf();
    mf.security = SecurityAttributes(AccessCondition::never(), soPin(), AccessCondition::never());
    mf.addChild(ef(dirFid, 128, dirContent(), soPin()));
    if (options.profile == CardProfile::Iso && options.hashOnCard)
        throw std::invalid_argument("a card of the iso profile does not hash");
    // Card capabilities: selection by name, path and FID; 1-byte units; chaining, and extended
    // Lc/Le on a native card.
    const std::uint8_t chaining = options.profile == CardProfile::Native ? 0xC0 : 0x80;
    mf.addChild(ef(atrInfoFid, 5, {0x47, 0x03, 0xB0, 0x01, chaining}, AccessCondition::never()));
    mf.addChild(applicationDf(options));
    state.pins.add(layout::userPinReference,
                   makePin(options.userPin, 3, layout::unblockingPinReference));
    state.pins.add(layout::unblockingPinReference, makePin(options.unblockingPin, 5, std::nullopt));
    state.pins.add(layout::soPinReference, makePin(options.soPin, 3, std::nullopt));
    state.hashOnCard = options.hashOnCard;
    state.profile = options.profile;
    return state;
}

} // namespace vcard
