#ifndef APP_OBJECT_IPIN_HPP
#define APP_OBJECT_IPIN_HPP

#include "app/ApplicationException.hpp"
#include "app/object/IAuthenticationObject.hpp"

#include <boost/optional.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

namespace card {
class IChannel;
}

namespace app {
namespace object {

/// A PIN value the PIN's attributes rule out: empty, shorter than minLength,
/// longer than maxLength (storedLength without one), or not only digits for
/// a numeric PIN type. Thrown before any command reaches the card, so it
/// costs no try. The value itself is never part of it.
class MW_EXPORT_TYPE InvalidPinException : public ApplicationException {
public:
    enum Fault { TooShort, TooLong, NotDigits };
    /// Which value of the operation was refused.
    enum Role { Current, Unblocking, New };

    InvalidPinException(Fault fault, Role role, std::size_t given, std::size_t minimum,
                        std::size_t maximum, bool digitsOnly)
        : fault_(fault)
        , role_(role)
        , given_(given)
        , minimum_(minimum)
        , maximum_(maximum)
        , digitsOnly_(digitsOnly) {}
    const char* what() const noexcept override { return "invalid PIN exception"; }

    Fault fault() const { return fault_; }
    Role role() const { return role_; }
    /// The length of the value refused.
    std::size_t given() const { return given_; }
    std::size_t minimum() const { return minimum_; }
    /// The longest value the PIN takes; 0 when it names no limit.
    std::size_t maximum() const { return maximum_; }
    /// Whether the PIN takes digits only.
    bool digitsOnly() const { return digitsOnly_; }

private:
    Fault fault_;
    Role role_;
    std::size_t given_;
    std::size_t minimum_;
    std::size_t maximum_;
    bool digitsOnly_;
};

class MW_EXPORT_TYPE IPin : public virtual IAuthenticationObject {
public:
    // The PIN's status as the card reports it.
    struct PinInfo {
        std::uint16_t state = 0; // 0 not verified, 1 verified, 2 blocked, 3 unknown
        std::uint16_t triesLeft = 0xFFFF;
    };

    enum PinType : std::uint32_t { Bcd, AsciiNumeric, Utf8, HalfNibbleBcd, Iso9564_1 };

    // Where the PIN lives on the card, when the entry says so.
    struct PinPath {
        mw::ByteBuffer path;
        boost::optional<std::uint16_t> index;
        boost::optional<std::uint16_t> length;
        bool operator==(const PinPath& other) const {
            return path == other.path && index == other.index && length == other.length;
        }
    };

    // PIN flags (12 bits, PKCS#15 bit 0 the top one).
    enum PinFlag : std::uint16_t {
        CaseSensitive = 0x800,
        Local = 0x400,
        ChangeDisabled = 0x200,
        UnblockDisabled = 0x100,
        Initialized = 0x080,
        NeedsPadding = 0x040,
        UnblockingPin = 0x020,
        SoPin = 0x010,
        DisableAllowed = 0x008,
        IntegrityProtected = 0x004,
        ConfidentialityProtected = 0x002,
        ExchangeRefData = 0x001
    };

    /// authenticate, change and unblock refuse a value that checkValue
    /// refuses, with InvalidPinException, before any command is sent.
    virtual void authenticate(const card::IChannel& channel, const mw::ByteBuffer& pin) const = 0;
    virtual void deauthenticate(const card::IChannel& channel) const = 0;
    /// Resets the retry counter with the value of the PIN's unblocking PIN;
    /// the PIN keeps its value.
    virtual void unblock(const card::IChannel& channel,
                         const mw::ByteBuffer& unblockingPin) const = 0;
    virtual void change(const card::IChannel& channel, const mw::ByteBuffer& oldPin,
                        const mw::ByteBuffer& newPin) const = 0;
    virtual const std::uint16_t& getPinFlags() const = 0;
    virtual void setPinFlags(std::uint16_t flags) = 0;
    virtual const std::uint32_t& getPinType() const = 0;
    virtual void setPinType(std::uint32_t type) = 0;
    virtual const boost::optional<std::uint16_t>& getMaxLength() const = 0;
    virtual void setMaxLength(std::uint16_t length) = 0;
    virtual const std::uint16_t& getMinLength() const = 0;
    virtual void setMinLength(std::uint16_t length) = 0;
    virtual const std::uint16_t& getStoredLength() const = 0;
    virtual void setStoredLength(std::uint16_t length) = 0;
    virtual const boost::optional<std::uint8_t>& getPinReference() const = 0;
    virtual void setPinReference(std::uint8_t reference) = 0;
    virtual const boost::optional<mw::ByteBuffer>& getPadChar() const = 0;
    virtual void setPadChar(const mw::ByteBuffer& padChar) = 0;
    // GeneralizedTime text of the last change, as the card wrote it.
    virtual const boost::optional<std::string>& getLastPinChange() const = 0;
    virtual const boost::optional<PinPath>& getPath() const = 0;
    // The authId of the authentication object that protects this PIN (on
    // most cards: the PIN that unblocks it).
    virtual const boost::optional<mw::ByteBuffer>& getProtectingAuthId() const = 0;
    virtual PinInfo getPinInfo(const card::IChannel& channel) const = 0;
    /// Resets the retry counter with the value of the PIN's unblocking PIN
    /// and gives the PIN the value `newPin`, in one command.
    virtual void unblock(const card::IChannel& channel, const mw::ByteBuffer& unblockingPin,
                         const mw::ByteBuffer& newPin) const = 0;
    /// Throws InvalidPinException, naming `role`, when `value` cannot be
    /// this PIN's value.
    virtual void checkValue(const mw::ByteBuffer& value, InvalidPinException::Role role) const = 0;
};

} // namespace object
} // namespace app

#endif
