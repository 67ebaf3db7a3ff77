#ifndef APP_OBJECT_IKEY_HPP
#define APP_OBJECT_IKEY_HPP

#include "app/object/ICardObject.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace app {
namespace object {

class MW_EXPORT_TYPE IKey : public virtual ICardObject {
public:
    // Key usage (10 bits, PKCS#15 bit 0 the top one).
    enum Usage : std::uint16_t {
        Encrypt = 0x200,
        Decrypt = 0x100,
        Sign = 0x080,
        SignRecover = 0x040,
        Wrap = 0x020,
        Unwrap = 0x010,
        Verify = 0x008,
        VerifyRecover = 0x004,
        Derive = 0x002,
        NonRepudiation = 0x001
    };
    // Key access flags (5 bits).
    enum AccessFlag : std::uint8_t {
        Sensitive = 0x10,
        Extractable = 0x08,
        AlwaysSensitive = 0x04,
        NeverExtractable = 0x02,
        LocalKey = 0x01
    };

    virtual const mw::ByteBuffer& getKeyId() const = 0;
    virtual void setKeyId(const mw::ByteBuffer& id) = 0;
    virtual const std::uint16_t& getUsage() const = 0;
    virtual void setUsage(std::uint16_t usage) = 0;
    virtual const bool& getNative() const = 0;
    virtual void setNative(bool native) = 0;
    virtual const boost::optional<std::uint8_t>& getAccessFlags() const = 0;
    virtual void setAccessFlags(std::uint8_t flags) = 0;
    // GeneralizedTime text ("20250101000000Z").
    virtual const boost::optional<std::string>& getStartDate() const = 0;
    virtual void setStartDate(const std::string& date) = 0;
    virtual const boost::optional<std::string>& getEndDate() const = 0;
    virtual void setEndDate(const std::string& date) = 0;
    // References of the algorithms the key may be used with, as the card's
    // algorithm table numbers them.
    virtual const boost::optional<std::vector<std::uint32_t>>& getAlgorithmReferences() const = 0;
    virtual void setAlgorithmReferences(const std::vector<std::uint32_t>& references) = 0;
    // Where the key lives on the card.
    virtual card::service::KeyRef getKeyReference() const = 0;
};

} // namespace object
} // namespace app

#endif
