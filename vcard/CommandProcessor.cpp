#include "vcard/CommandProcessor.hpp"

#include "vcard/Algorithms.hpp"
#include "vcard/CardLimits.hpp"
#include "vcard/StatusWord.hpp"
#include "vcard/Tlv.hpp"

namespace vcard {

namespace {

namespace ins {
constexpr std::uint8_t select = 0xA4;
constexpr std::uint8_t readBinary = 0xB0;
constexpr std::uint8_t readBinaryOdd = 0xB1;
constexpr std::uint8_t updateBinary = 0xD6;
constexpr std::uint8_t updateBinaryOdd = 0xD7;
constexpr std::uint8_t createFile = 0xE0;
constexpr std::uint8_t deleteFile = 0xE4;
constexpr std::uint8_t verify = 0x20;
constexpr std::uint8_t changeReferenceData = 0x24;
constexpr std::uint8_t resetRetryCounter = 0x2C;
constexpr std::uint8_t generateKeyPair = 0x46;
constexpr std::uint8_t putData = 0xDB;
constexpr std::uint8_t manageSecurityEnvironment = 0x22;
constexpr std::uint8_t performSecurityOperation = 0x2A;
constexpr std::uint8_t getChallenge = 0x84;
constexpr std::uint8_t getData = 0xCA;
} // namespace ins

/// The iso profile answers GET CHALLENGE with this many bytes, whatever Le asks.
constexpr std::uint8_t isoChallengeLength = 8;

void requireP1P2(const CommandApdu& apdu, std::uint8_t p1, std::uint8_t p2) {
    if (apdu.p1 != p1 || apdu.p2 != p2)
        throw CardError(sw::wrongP1P2);
}

void requireData(const CommandApdu& apdu) {
    if (apdu.data.empty())
        throw CardError(sw::wrongLength);
}

std::size_t binaryOffset(const CommandApdu& apdu) {
    if (apdu.p1 & 0x80)
        throw CardError(sw::wrongP1P2);
    return static_cast<std::size_t>(apdu.p1) << 8 | apdu.p2;
}

namespace tag {
constexpr std::uint16_t offset = 0x54;
constexpr std::uint16_t discretionaryData = 0x53;
} // namespace tag

/// The data objects of an odd-INS READ or UPDATE BINARY, which addresses the current EF only
/// (P1-P2 = 0000): the offset object first, then `count` objects in all.
std::vector<Tlv> oddBinaryObjects(const CommandApdu& apdu, std::size_t count) {
    requireP1P2(apdu, 0x00, 0x00);
    requireData(apdu);
    std::vector<Tlv> objects = parseTlvs(apdu.data);
    if (objects.size() != count || objects[0].tag != tag::offset || objects[0].value.empty())
        throw CardError(sw::wrongData);
    return objects;
}

/// The offset in an offset data object, of any length; one beyond every file is 6B00.
std::size_t offsetIn(const Tlv& offsetObject) {
    std::size_t offset = 0;
    for (const std::uint8_t byte : offsetObject.value) {
        if (offset > limits::maxEfSize)
            throw CardError(sw::offsetOutsideFile);
        offset = offset << 8 | byte;
    }
    return offset;
}

std::size_t tlvHeaderSize(std::size_t length) {
    return length < 0x80 ? 2 : length < 0x100 ? 3 : 4;
}

/// How many file bytes an answer of at most ne bytes carries wrapped in a data object 53.
std::size_t wrappedRoom(std::size_t ne) {
    if (ne < tlvHeaderSize(0))
        throw CardError(sw::wrongLength);
    std::size_t room = ne - tlvHeaderSize(0);
    while (room + tlvHeaderSize(room) > ne)
        --room;
    return room;
}

std::uint8_t keyId(std::uint8_t keyReference) {
    if ((keyReference & 0x80) == 0)
        throw CardError(sw::referenceNotFound);
    return keyReference & 0x7F;
}

const Bytes& requiredTlv(const std::vector<Tlv>& tlvs, std::uint16_t tag) {
    const Bytes* value = findTlv(tlvs, tag);
    if (value == nullptr)
        throw CardError(sw::wrongData);
    return *value;
}

} // namespace

void CommandProcessor::clearStateChanged() {
    changed_ = false;
    state_.pins.clearChanged();
}

void CommandProcessor::reset() {
    status_.clearAll();
    signingKey_.reset();
    decipheringKey_.reset();
    state_.files.resetSelection();
}

void CommandProcessor::replaceState(CardState fresh) {
    fresh.files.followSelection(state_.files);
    const auto& freshPins = fresh.pins.pins();
    for (const auto& [reference, pin] : state_.pins.pins()) {
        const auto same = freshPins.find(reference);
        if (same == freshPins.end() || !(same->second == pin))
            status_.clear(reference);
    }
    state_ = std::move(fresh);
    clearStateChanged();
}

Response CommandProcessor::execute(const CommandApdu& apdu) {
    try {
        return dispatch(apdu);
    } catch (const CardError& error) {
        return {{}, error.statusWord()};
    } catch (const CryptoPP::Exception&) {
        // A private operation that fails its own consistency check.
        return {{}, sw::noPreciseDiagnosis};
    }
}

Response CommandProcessor::dispatch(const CommandApdu& apdu) {
    switch (apdu.ins) {
    case ins::select:
        return select(apdu);
    case ins::readBinary:
        return readBinary(apdu);
    case ins::readBinaryOdd:
        return readBinaryOdd(apdu);
    case ins::updateBinary:
        return updateBinary(apdu);
    case ins::updateBinaryOdd:
        return updateBinaryOdd(apdu);
    case ins::createFile:
        return createFile(apdu);
    case ins::deleteFile:
        return deleteFile(apdu);
    case ins::verify:
        return comparingPin(&CommandProcessor::verify, apdu);
    case ins::changeReferenceData:
        return comparingPin(&CommandProcessor::changeReferenceData, apdu);
    case ins::resetRetryCounter:
        return comparingPin(&CommandProcessor::resetRetryCounter, apdu);
    case ins::generateKeyPair:
        return generateOrReadKeyPair(apdu);
    case ins::putData:
        return importPrivateKey(apdu);
    case ins::manageSecurityEnvironment:
        return manageSecurityEnvironment(apdu);
    case ins::performSecurityOperation:
        return performSecurityOperation(apdu);
    case ins::getChallenge:
        return getChallenge(apdu);
    case ins::getData:
        return getData(apdu);
    default:
        throw CardError(sw::insNotSupported);
    }
}

void CommandProcessor::requireAccess(const CardFile& file, AccessMode mode) const {
    if (!file.security.allows(mode, status_))
        throw CardError(sw::securityNotSatisfied);
}

Response CommandProcessor::select(const CommandApdu& apdu) {
    if (apdu.p2 != 0x00 && apdu.p2 != 0x04 && apdu.p2 != 0x0C)
        throw CardError(sw::wrongP1P2);
    FileSystem& files = state_.files;
    CardFile* selected = nullptr;
    switch (apdu.p1) {
    case 0x00:
    case 0x01:
    case 0x02:
        selected = &files.selectByFid(apdu.p1, apdu.data);
        break;
    case 0x04:
        selected = &files.selectByName(apdu.data);
        break;
    case 0x08:
    case 0x09:
        selected = &files.selectByPath(apdu.data, apdu.p1 == 0x08);
        break;
    default:
        throw CardError(sw::wrongP1P2);
    }
    if (apdu.p2 == 0x0C)
        return {};
    return {selected->fcp(state_.profile), sw::ok};
}

Response CommandProcessor::readBinary(const CommandApdu& apdu) {
    const std::size_t offset = binaryOffset(apdu);
    if (!apdu.hasLe)
        throw CardError(sw::wrongLength);
    return readCurrentEf(offset, apdu.ne);
}

Response CommandProcessor::readBinaryOdd(const CommandApdu& apdu) {
    const std::size_t offset = offsetIn(oddBinaryObjects(apdu, 1)[0]);
    if (!apdu.hasLe)
        throw CardError(sw::wrongLength);
    Response response = readCurrentEf(offset, wrappedRoom(apdu.ne));
    Bytes wrapped;
    appendTlv(wrapped, tag::discretionaryData, response.data);
    response.data = std::move(wrapped);
    return response;
}

Response CommandProcessor::readCurrentEf(std::size_t offset, std::size_t count) const {
    const CardFile& ef = state_.files.currentEf();
    requireAccess(ef, AccessMode::Read);
    if (offset >= ef.content.size())
        throw CardError(sw::offsetOutsideFile);
    const std::size_t available = std::min(count, ef.content.size() - offset);
    Bytes data(ef.content.begin() + offset, ef.content.begin() + offset + available);
    return {std::move(data), available < count ? sw::endOfFile : sw::ok};
}

Response CommandProcessor::updateBinary(const CommandApdu& apdu) {
    const std::size_t offset = binaryOffset(apdu);
    requireData(apdu);
    return updateCurrentEf(offset, apdu.data);
}

Response CommandProcessor::updateBinaryOdd(const CommandApdu& apdu) {
    const std::vector<Tlv> objects = oddBinaryObjects(apdu, 2);
    if (objects[1].tag != tag::discretionaryData)
        throw CardError(sw::wrongData);
    if (objects[1].value.empty())
        throw CardError(sw::wrongLength);
    return updateCurrentEf(offsetIn(objects[0]), objects[1].value);
}

Response CommandProcessor::updateCurrentEf(std::size_t offset, const Bytes& data) {
    CardFile& ef = state_.files.currentEf();
    requireAccess(ef, AccessMode::Update);
    if (offset > ef.content.size() || data.size() > ef.content.size() - offset)
        throw CardError(sw::notEnoughMemory);
    std::copy(data.begin(), data.end(), ef.content.begin() + offset);
    changed_ = true;
    return {};
}

Response CommandProcessor::createFile(const CommandApdu& apdu) {
    requireP1P2(apdu, 0x00, 0x00);
    state_.files.create(apdu.data, status_);
    changed_ = true;
    return {};
}

Response CommandProcessor::deleteFile(const CommandApdu& apdu) {
    requireP1P2(apdu, 0x00, 0x00);
    state_.files.remove(apdu.data, status_);
    changed_ = true;
    return {};
}

Response CommandProcessor::comparingPin(PinCommand command, const CommandApdu& apdu) {
    try {
        return (this->*command)(apdu);
    } catch (const CardError& error) {
        const bool triesTold = (error.statusWord() & 0xFFF0) == sw::triesLeft(0);
        if (state_.profile != CardProfile::Iso || !triesTold)
            throw;
        // The try is counted all the same; only the answer keeps the count to itself.
        throw CardError(error.statusWord() == sw::triesLeft(0) ? sw::blocked
                                                               : sw::verificationFailed);
    }
}

Response CommandProcessor::verify(const CommandApdu& apdu) {
    if (apdu.p1 == 0xFF) {
        if (!apdu.data.empty())
            throw CardError(sw::wrongLength);
        state_.pins.logOut(apdu.p2, status_);
        return {};
    }
    requireP1P2(apdu, 0x00, apdu.p2);
    if (apdu.data.empty() && state_.profile == CardProfile::Iso)
        throw CardError(sw::wrongP1P2); // no status query: it tells nothing and costs no try
    if (apdu.data.empty())
        state_.pins.checkStatus(apdu.p2, status_);
    else
        state_.pins.verify(apdu.p2, apdu.data, status_, store_);
    return {};
}

Response CommandProcessor::changeReferenceData(const CommandApdu& apdu) {
    requireP1P2(apdu, 0x00, apdu.p2);
    requireData(apdu);
    state_.pins.change(apdu.p2, apdu.data, status_, store_);
    return {};
}

Response CommandProcessor::resetRetryCounter(const CommandApdu& apdu) {
    if (apdu.p1 > 0x01)
        throw CardError(sw::wrongP1P2);
    requireData(apdu);
    state_.pins.unblock(apdu.p2, apdu.data, apdu.p1 == 0x00, status_, store_);
    return {};
}

CardFile& CommandProcessor::keyFile(std::uint8_t keyReference, bool privateKey) {
    const std::uint16_t fid =
        static_cast<std::uint16_t>((privateKey ? 0x0E00 : 0x0F00) | keyId(keyReference));
    CardFile* file = state_.files.findKeyFile(fid);
    const FileKind kind = privateKey ? FileKind::PrivateKey : FileKind::PublicKey;
    if (file == nullptr || file->kind != kind)
        throw CardError(sw::referenceNotFound);
    return *file;
}

Response CommandProcessor::generateOrReadKeyPair(const CommandApdu& apdu) {
    if (apdu.p1 == 0x00)
        return generateKeyPair(apdu.p2, apdu.data);
    if (apdu.p1 == 0x01)
        return readPublicKey(apdu.p2);
    throw CardError(sw::wrongP1P2);
}

Response CommandProcessor::generateKeyPair(std::uint8_t keyReference, const Bytes& data) {
    if (data.empty())
        throw CardError(sw::wrongLength);
    const std::vector<Tlv> tlvs = parseTlvs(data);
    const Bytes& size = requiredTlv(tlvs, 0x80);
    if (size.size() != 2)
        throw CardError(sw::wrongData);
    const unsigned bits = static_cast<unsigned>(size[0] << 8 | size[1]);
    CardFile& privateFile = keyFile(keyReference, true);
    CardFile& publicFile = keyFile(keyReference, false);
    if (privateFile.keyBits != bits || publicFile.keyBits != bits)
        throw CardError(sw::wrongData);
    requireAccess(privateFile, AccessMode::Update);
    requireAccess(publicFile, AccessMode::Update);
    privateFile.key = RsaKey::generate(rng_, bits);
    publicFile.key = privateFile.key->publicPart();
    changed_ = true;
    return {publicFile.key->publicKeyTemplate(), sw::ok};
}

Response CommandProcessor::readPublicKey(std::uint8_t keyReference) {
    const CardFile& publicFile = keyFile(keyReference, false);
    if (!publicFile.key)
        throw CardError(sw::conditionsNotSatisfied);
    requireAccess(publicFile, AccessMode::Read);
    return {publicFile.key->publicKeyTemplate(), sw::ok};
}

Response CommandProcessor::importPrivateKey(const CommandApdu& apdu) {
    requireP1P2(apdu, 0x00, apdu.p2);
    requireData(apdu);
    std::vector<Tlv> outer = parseTlvs(apdu.data);
    if (outer.size() != 1 || outer[0].tag != 0x7F48)
        throw CardError(sw::wrongData);
    std::vector<Tlv> parts = parseTlvs(outer[0].value);
    RsaCrtComponents crt;
    crt.e = requiredTlv(parts, 0x91);
    crt.p = requiredTlv(parts, 0x92);
    crt.q = requiredTlv(parts, 0x93);
    crt.qInv = requiredTlv(parts, 0x94);
    crt.dp = requiredTlv(parts, 0x95);
    crt.dq = requiredTlv(parts, 0x96);
    for (Tlv& part : parts)
        wipe(part.value);
    wipe(outer[0].value);

    CardFile& privateFile = keyFile(apdu.p2, true);
    requireAccess(privateFile, AccessMode::Update);
    CardFile* publicFile =
        state_.files.findKeyFile(static_cast<std::uint16_t>(0x0F00 | keyId(apdu.p2)));
    if (publicFile != nullptr) {
        requireAccess(*publicFile, AccessMode::Update);
        if (publicFile->keyBits != privateFile.keyBits)
            throw CardError(sw::wrongData);
    }
    privateFile.key = RsaKey::fromCrt(rng_, crt, privateFile.keyBits);
    if (publicFile != nullptr)
        publicFile->key = privateFile.key->publicPart();
    changed_ = true;
    return {};
}

Response CommandProcessor::manageSecurityEnvironment(const CommandApdu& apdu) {
    if (apdu.p1 != 0x41 || (apdu.p2 != 0xB6 && apdu.p2 != 0xB8))
        throw CardError(sw::wrongP1P2);
    requireData(apdu);
    std::vector<Tlv> tlvs = parseTlvs(apdu.data);
    const Bytes& reference = requiredTlv(tlvs, 0x84);
    const Bytes* algorithm = findTlv(tlvs, 0x80);
    if (reference.size() != 1 || (algorithm && algorithm->size() != 1))
        throw CardError(sw::wrongData);
    const std::optional<std::uint8_t> algorithmReference =
        chosenAlgorithm(state_, apdu.p2 == 0xB6,
                        algorithm ? std::optional<std::uint8_t>((*algorithm)[0]) : std::nullopt);
    if (!algorithmReference)
        throw CardError(sw::wrongData);
    keyFile(reference[0], true);
    if (apdu.p2 == 0xB6) {
        signingKey_ = reference[0];
        signingAlgorithm_ = *algorithmReference;
    } else {
        decipheringKey_ = reference[0];
        decipheringAlgorithm_ = *algorithmReference;
    }
    return {};
}

const RsaKey& CommandProcessor::usablePrivateKey(const std::optional<std::uint8_t>& keyReference) {
    if (!keyReference)
        throw CardError(sw::conditionsNotSatisfied);
    const CardFile& file = keyFile(*keyReference, true);
    if (!file.key || !file.key->hasPrivatePart())
        throw CardError(sw::conditionsNotSatisfied);
    requireAccess(file, AccessMode::Use);
    return *file.key;
}

Response CommandProcessor::performSecurityOperation(const CommandApdu& apdu) {
    if (apdu.p1 == 0x9E && apdu.p2 == 0x9A) {
        const RsaKey& key = usablePrivateKey(signingKey_);
        requireData(apdu);
        return {sign(key, rng_, signingAlgorithm_, apdu.data), sw::ok};
    }
    if (apdu.p1 == 0x80 && apdu.p2 == 0x86) {
        const RsaKey& key = usablePrivateKey(decipheringKey_);
        requireData(apdu);
        if (apdu.data[0] != 0x00)
            throw CardError(sw::wrongData);
        return {decipher(key, rng_, decipheringAlgorithm_,
                         Bytes(apdu.data.begin() + 1, apdu.data.end())),
                sw::ok};
    }
    throw CardError(sw::wrongP1P2);
}

Response CommandProcessor::getChallenge(const CommandApdu& apdu) {
    requireP1P2(apdu, 0x00, 0x00);
    if (!apdu.hasLe)
        throw CardError(sw::wrongLength);
    if (state_.profile == CardProfile::Iso && apdu.ne < isoChallengeLength)
        throw CardError(sw::exactLength(isoChallengeLength));
    Bytes challenge(state_.profile == CardProfile::Iso ? isoChallengeLength : apdu.ne);
    rng_.GenerateBlock(challenge.data(), challenge.size());
    return {std::move(challenge), sw::ok};
}

Response CommandProcessor::getData(const CommandApdu& apdu) {
    if (state_.profile == CardProfile::Iso)
        throw CardError(sw::functionNotSupported);
    if (apdu.p1 != 0x01 || apdu.p2 != 0xA0)
        throw CardError(sw::referenceNotFound);
    return {algorithmList(state_.hashOnCard), sw::ok};
}

} // namespace vcard
