#pragma once

#include "vcard/CardState.hpp"
#include "vcard/CommandApdu.hpp"
#include "vcard/SecurityStatus.hpp"

#include <cryptopp/osrng.h>

#include <optional>

namespace vcard {

/// The answer to one complete command, before it is cut to Ne.
struct Response {
    Bytes data;
    std::uint16_t statusWord = 0x9000;
};

/// Executes complete (already assembled) commands of the card profile on the card state.
/// Holds the volatile part of the card: security status and security environment.
class CommandProcessor {
public:
    explicit CommandProcessor(CardState& state)
        : state_(state) {}

    /// Never throws for a refused or malformed command: the status word says why.
    Response execute(const CommandApdu& apdu);

    /// Whether a command since the last clearStateChanged() changed what the image holds.
    bool stateChanged() const { return changed_ || state_.pins.changed(); }
    void clearStateChanged();

    /// How the state is stored in the middle of a command: a PIN's lowered retry counter before
    /// the PIN is compared. Without one, nothing is stored and the comparison goes ahead.
    void setStore(StoreState store) { store_ = std::move(store); }

    /// Warm reset and power-off: nothing verified, no security environment, MF selected.
    void reset();

    /// Takes up the state another process stored, as a card whose files another application
    /// changed: a PIN stays verified only if its record is unchanged (not blocked, changed or
    /// tried wrongly meanwhile); the current file stays selected if it still exists, else the MF;
    /// the security environment stays.
    void replaceState(CardState fresh);

    /// The card's random source, also for key generation by personalisation.
    CryptoPP::RandomNumberGenerator& rng() { return rng_; }

private:
    Response dispatch(const CommandApdu& apdu);
    Response select(const CommandApdu& apdu);
    Response readBinary(const CommandApdu& apdu);
    Response readBinaryOdd(const CommandApdu& apdu);
    Response readCurrentEf(std::size_t offset, std::size_t count) const;
    Response updateBinary(const CommandApdu& apdu);
    Response updateBinaryOdd(const CommandApdu& apdu);
    Response updateCurrentEf(std::size_t offset, const Bytes& data);
    Response createFile(const CommandApdu& apdu);
    Response deleteFile(const CommandApdu& apdu);
    using PinCommand = Response (CommandProcessor::*)(const CommandApdu&);
    /// Runs a command that compares a PIN value, answering a wrong one as the profile does.
    Response comparingPin(PinCommand command, const CommandApdu& apdu);
    Response verify(const CommandApdu& apdu);
    Response changeReferenceData(const CommandApdu& apdu);
    Response resetRetryCounter(const CommandApdu& apdu);
    Response generateOrReadKeyPair(const CommandApdu& apdu);
    Response generateKeyPair(std::uint8_t keyReference, const Bytes& data);
    Response readPublicKey(std::uint8_t keyReference);
    Response importPrivateKey(const CommandApdu& apdu);
    Response manageSecurityEnvironment(const CommandApdu& apdu);
    Response performSecurityOperation(const CommandApdu& apdu);
    Response getChallenge(const CommandApdu& apdu);
    Response getData(const CommandApdu& apdu);

    CardFile& keyFile(std::uint8_t keyReference, bool privateKey);
    const RsaKey& usablePrivateKey(const std::optional<std::uint8_t>& keyReference);
    void requireAccess(const CardFile& file, AccessMode mode) const;

    CardState& state_;
    SecurityStatus status_;
    std::optional<std::uint8_t> signingKey_;
    std::uint8_t signingAlgorithm_ = 0x01;
    std::optional<std::uint8_t> decipheringKey_;
    std::uint8_t decipheringAlgorithm_ = 0x01;
    CryptoPP::AutoSeededRandomPool rng_;
    bool changed_ = false;
    StoreState store_ = [] { return true; };
};

} // namespace vcard
