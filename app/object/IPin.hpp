#ifndef APP_OBJECT_IPIN_HPP
#define APP_OBJECT_IPIN_HPP

#include "app/object/IAuthenticationObject.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <string>

namespace card {
class IChannel;
}

namespace app {
namespace object {

class MW_EXPORT_TYPE IPin : public virtual IAuthenticationObject {
public:
    // The PIN's status as the card reports it.
    struct PinInfo {
        std::uint16_t state = 0; // 0 not verified, 1 verified, 2 blocked
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

    virtual void authenticate(const card::IChannel& channel, const mw::ByteBuffer& pin) const = 0;
    virtual void deauthenticate(const card::IChannel& channel) const = 0;
    // Resets the retry counter with the value of the PIN's unblocking PIN.
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
};

} // namespace object
} // namespace app

#endif
