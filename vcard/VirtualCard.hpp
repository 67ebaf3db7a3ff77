#pragma once

#include "vcard/Bytes.hpp"
#include "vcard/CardImage.hpp"
#include "vcard/CardState.hpp"
#include "vcard/CommandProcessor.hpp"
#include "vcard/Instrumentation.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace vcard {

/// The card stopped answering: powered off, or a fault injected as a removal or a torn write.
class CardRemoved : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An ISO 7816 card that implements docs/card-profile.md: transport rules (chaining, GET
/// RESPONSE, Ne), persistence of its image after every command that changes it, power and
/// instrumentation. The commands themselves run in CommandProcessor.
///
/// Every process (and every VirtualCard) that opens one image works on one card: a command runs
/// with the image locked, inside lock() or else for itself, and first takes up the image when
/// another one changed it; no card writes back a state older than the image.
class VirtualCard {
public:
    /// How long a command sent outside lock() waits for another holder of the image.
    static constexpr std::chrono::seconds commandLockLimit{10};

    /// A freshly personalised card held in memory only (defined in the library vcard, beside the
    /// personalisation, which vcard_core does not link).
    static std::unique_ptr<VirtualCard> personalised();
    /// The card stored in the image; every change is saved back to it atomically. Throws
    /// ImageError when the image is missing, corrupt or truncated (the file stays untouched), or
    /// (ImageAccess::OwnerOnly) when others may write its folder or the image.
    static std::unique_ptr<VirtualCard> open(const std::string& imagePath,
                                             ImageAccess access = ImageAccess::OwnerOnly);

    /// A card with this state; with an image path, changes are saved there, and the image as it
    /// is now counts as holding this state.
    explicit VirtualCard(CardState state, std::optional<std::string> imagePath = std::nullopt);
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;

    /// One command APDU in, response data and SW1 SW2 out. A malformed or refused command gets
    /// its status word; only a powered-off card or an injected fault throws CardRemoved. Outside
    /// lock() the command locks the image for itself (lock()'s errors then).
    Bytes transmit(const Bytes& command);

    /// Holds the image for this card until the matching unlock() (nesting is counted), waiting at
    /// most limit for another process to let go of it (ImageBusy after that). If another process
    /// changed the image meanwhile, the card takes it up (CommandProcessor::replaceState); a
    /// missing or corrupt image then throws ImageError and nothing is written. A card without an
    /// image holds nothing.
    void lock(std::chrono::milliseconds limit);
    void unlock();
    /// How often lock() took up what another process stored in the image.
    unsigned long changesTakenUp() const { return changesTakenUp_; }

    /// T=1, with the card capabilities in the historical bytes: command chaining, and extended
    /// Lc/Le unless turned off or the card is of the iso profile.
    Bytes atr() const;
    /// A card that takes short APDUs only (extended ones → 6700) and says so in its ATR. For
    /// testing the host's short-APDU path; on by default, and never on for the iso profile.
    void setExtendedLength(bool enabled) { extendedLength_ = enabled; }
    /// Warm reset (powers the card on if it was off): nothing verified, MF selected.
    void reset();
    /// The card answers nothing until reset().
    void powerOff();
    bool isPoweredOn() const { return poweredOn_; }

    Instrumentation& instrumentation() { return instrumentation_; }

    /// Writes the whole state atomically to path (mode 0600).
    void save(const std::string& path) const;

    const CardState& state() const { return state_; }

private:
    /// The profile may change when another process personalises the image anew.
    bool takesExtendedLength() const {
        return extendedLength_ && state_.profile == CardProfile::Native;
    }
    Bytes process(const Bytes& command);
    Bytes processAssembled(CommandApdu apdu);
    Bytes continueChain(const CommandApdu& part);
    Bytes getResponse(const CommandApdu& apdu);
    Bytes deliver(Response response, std::size_t ne);
    [[noreturn]] void tearWrite(const Bytes& command);
    bool storeImage();
    void saveTo(ImageFile& file) const;
    void persist(Response& response);
    void dropTransientData();

    CardState state_;
    CommandProcessor processor_;
    std::unique_ptr<ImageFile> image_;
    int holds_ = 0;
    unsigned long changesTakenUp_ = 0;
    mutable Instrumentation instrumentation_;
    bool poweredOn_ = true;
    bool extendedLength_ = true;
    std::optional<CommandApdu> chain_;
    Bytes pendingResponse_;
    std::uint16_t pendingStatusWord_ = 0x9000;
};

} // namespace vcard
