#include "vcard/VirtualCard.hpp"

#include "vcard/StatusWord.hpp"

#include <algorithm>
#include <thread>

namespace vcard {

namespace {

constexpr std::uint8_t insGetResponse = 0xC0;
constexpr std::size_t maxChainedData = 0xFFFF;
constexpr std::uint8_t insUpdateBinary = 0xD6;

/// The answer goes into a block with room for the status word: growing `data` in place would free
/// its old block with the response (a deciphered secret) still in it.
Bytes withStatusWord(Bytes data, std::uint16_t statusWord) {
    Bytes answer;
    answer.reserve(data.size() + 2);
    answer.assign(data.begin(), data.end());
    wipe(data);
    answer.push_back(static_cast<std::uint8_t>(statusWord >> 8));
    answer.push_back(static_cast<std::uint8_t>(statusWord));
    return answer;
}

Bytes statusWordOnly(std::uint16_t statusWord) {
    return withStatusWord({}, statusWord);
}

/// 61xx and 6Cxx carry a count in one byte, 00 standing for 256 or more.
std::uint8_t countByte(std::size_t count) {
    return count >= 256 ? 0 : static_cast<std::uint8_t>(count);
}

bool sameCommand(const CommandApdu& a, const CommandApdu& b) {
    return a.ins == b.ins && a.p1 == b.p1 && a.p2 == b.p2;
}

/// Lets go of the image when a command ends, however it ends.
struct Unlock {
    VirtualCard& card;
    ~Unlock() { card.unlock(); }
};

} // namespace

std::unique_ptr<VirtualCard> VirtualCard::open(const std::string& imagePath, ImageAccess access) {
    auto image = std::make_unique<ImageFile>(imagePath, access);
    auto card = std::make_unique<VirtualCard>(image->load());
    card->image_ = std::move(image);
    return card;
}

VirtualCard::VirtualCard(CardState state, std::optional<std::string> imagePath)
    : state_(std::move(state))
    , processor_(state_)
    , image_(imagePath ? std::make_unique<ImageFile>(*imagePath) : nullptr) {
    processor_.setStore([this] { return storeImage(); });
    if (image_)
        image_->assumeCurrent();
}

void VirtualCard::lock(std::chrono::milliseconds limit) {
    if (!image_ || holds_++ > 0)
        return;
    try {
        image_->lock(limit);
        if (image_->changed()) {
            processor_.replaceState(image_->load());
            ++changesTakenUp_;
        }
    } catch (...) {
        holds_ = 0;
        image_->unlock();
        throw;
    }
}

void VirtualCard::unlock() {
    if (image_ && holds_ > 0 && --holds_ == 0)
        image_->unlock();
}

Bytes VirtualCard::atr() const {
    // TS, T0 (TD1 follows, 12 historical bytes), TD1 (T=1), then the historical bytes: category
    // 80 (compact-TLV), card capabilities 73 (selection by name, path and FID; data units of one
    // byte; command chaining, extended Lc/Le), card issuer's data 56 "p15kit"; TCK closes.
    Bytes atr = {0x3B, 0x8C, 0x01, 0x80,
                 0x73, 0xB0, 0x01, takesExtendedLength() ? std::uint8_t{0xC0} : std::uint8_t{0x80},
                 0x56, 0x70, 0x31, 0x35,
                 0x6B, 0x69, 0x74};
    std::uint8_t check = 0;
    for (std::size_t i = 1; i < atr.size(); ++i)
        check ^= atr[i];
    atr.push_back(check);
    return atr;
}

void VirtualCard::reset() {
    poweredOn_ = true;
    processor_.reset();
    dropTransientData();
}

void VirtualCard::powerOff() {
    poweredOn_ = false;
    processor_.reset();
    dropTransientData();
}

void VirtualCard::dropTransientData() {
    chain_.reset();
    wipe(pendingResponse_);
}

void VirtualCard::save(const std::string& path) const {
    ImageFile file(path, ImageAccess::Shared);
    saveTo(file);
}

void VirtualCard::saveTo(ImageFile& file) const {
    std::string text = CardImage::serialise(state_);
    try {
        file.store(text, &instrumentation_);
    } catch (...) {
        wipe(text);
        throw;
    }
    wipe(text);
}

Bytes VirtualCard::transmit(const Bytes& command) {
    if (!poweredOn_)
        throw CardRemoved("the virtual card is powered off");
    lock(commandLockLimit);
    const Unlock unlockWhenDone{*this};
    instrumentation_.countCommand(command.size());
    const std::uint8_t ins = command.size() > 1 ? command[1] : 0;
    std::optional<Instrumentation::Fault> fault = instrumentation_.takeFault(ins);
    if (fault == Instrumentation::Fault::CardRemoved) {
        powerOff();
        throw CardRemoved("the virtual card was removed (injected fault)");
    }
    if (fault == Instrumentation::Fault::TornWrite)
        tearWrite(command);
    Bytes response =
        fault ? statusWordOnly(instrumentation_.injectedStatusWord()) : process(command);
    instrumentation_.countResponse(response.size());
    const auto latency = instrumentation_.latencyFor(command.size() + response.size());
    if (latency.count() > 0)
        std::this_thread::sleep_for(latency);
    return response;
}

Bytes VirtualCard::process(const Bytes& command) {
    CommandApdu apdu;
    try {
        apdu = CommandApdu::parse(command);
        if (apdu.extended && !takesExtendedLength())
            throw CardError(sw::wrongLength);
    } catch (const CardError& error) {
        dropTransientData();
        return statusWordOnly(error.statusWord());
    }
    if ((apdu.cla & ~0x10) != 0) {
        dropTransientData();
        return statusWordOnly(sw::claNotSupported);
    }
    if (apdu.ins == insGetResponse && !chain_ && !apdu.chained())
        return getResponse(apdu);
    wipe(pendingResponse_);
    if (chain_ || apdu.chained())
        return continueChain(apdu);
    return processAssembled(std::move(apdu));
}

Bytes VirtualCard::continueChain(const CommandApdu& part) {
    if (chain_ && !sameCommand(*chain_, part)) {
        dropTransientData();
        return statusWordOnly(sw::lastCommandOfChainExpected);
    }
    if (!chain_) {
        chain_ = part;
    } else {
        chain_->appendData(part.data);
    }
    if (chain_->data.size() > maxChainedData) {
        dropTransientData();
        return statusWordOnly(sw::wrongLength);
    }
    if (part.chained())
        return statusWordOnly(sw::ok);
    CommandApdu whole = std::move(*chain_);
    chain_.reset();
    whole.cla = part.cla;
    whole.ne = part.ne;
    whole.hasLe = part.hasLe;
    return processAssembled(std::move(whole));
}

Bytes VirtualCard::processAssembled(CommandApdu apdu) {
    Response response = processor_.execute(apdu);
    wipe(apdu.data);
    if (processor_.stateChanged())
        persist(response);
    return deliver(std::move(response), apdu.hasLe ? apdu.ne : 256);
}

/// Stores the state in the image, if the card has one. Once the new image has replaced the old
/// one the state counts as stored, even if the directory could not be synced afterwards.
bool VirtualCard::storeImage() {
    if (!image_)
        return true;
    try {
        saveTo(*image_);
    } catch (const ImageNotSynced&) {
    } catch (const ImageError&) {
        return false;
    }
    return true;
}

void VirtualCard::persist(Response& response) {
    processor_.clearStateChanged();
    if (storeImage())
        return;
    // Memory must not run ahead of the image: fall back to what the image holds. Its retry
    // counters are never higher than memory's, since a lowered counter is stored before the PIN
    // is compared.
    try {
        state_ = image_->load();
    } catch (const ImageError&) {
    }
    processor_.reset();
    response = {{}, sw::memoryFailure};
}

Bytes VirtualCard::deliver(Response response, std::size_t ne) {
    if (response.data.size() <= ne)
        return withStatusWord(std::move(response.data), response.statusWord);
    pendingResponse_.assign(response.data.begin() + static_cast<std::ptrdiff_t>(ne),
                            response.data.end());
    pendingStatusWord_ = response.statusWord;
    // Shrinking keeps the block: its tail is zeroed, since wiping stops at the size.
    std::fill(response.data.begin() + static_cast<std::ptrdiff_t>(ne), response.data.end(), 0);
    response.data.resize(ne);
    return withStatusWord(std::move(response.data), 0x6100 | countByte(pendingResponse_.size()));
}

Bytes VirtualCard::getResponse(const CommandApdu& apdu) {
    if (apdu.p1 != 0 || apdu.p2 != 0)
        return statusWordOnly(sw::wrongP1P2);
    if (pendingResponse_.empty())
        return statusWordOnly(sw::conditionsNotSatisfied);
    const std::size_t waiting = pendingResponse_.size();
    const std::size_t ne = apdu.hasLe ? apdu.ne : 256;
    if (ne > waiting && waiting < 256)
        return statusWordOnly(0x6C00 | countByte(waiting));
    Bytes pending = std::move(pendingResponse_);
    pendingResponse_.clear();
    return deliver({std::move(pending), pendingStatusWord_}, ne);
}

void VirtualCard::tearWrite(const Bytes& command) {
    try {
        CommandApdu apdu = CommandApdu::parse(command);
        if (apdu.ins == insUpdateBinary && !apdu.chained() && !chain_) {
            const std::size_t kept = instrumentation_.tornBytes();
            apdu.data.resize(kept > 0 ? std::min(kept, apdu.data.size()) : apdu.data.size() / 2);
            if (!apdu.data.empty())
                processAssembled(std::move(apdu));
        }
    } catch (const CardError&) {
    }
    powerOff();
    throw CardRemoved("the virtual card lost power during the command (injected torn write)");
}

} // namespace vcard
