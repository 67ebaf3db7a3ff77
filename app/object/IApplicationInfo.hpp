#ifndef APP_OBJECT_IAPPLICATIONINFO_HPP
#define APP_OBJECT_IAPPLICATIONINFO_HPP

#include "app/object/ICardObject.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace app {
namespace object {

// What the card says about the application (its token information). The
// token's label is the object's label.
class MW_EXPORT_TYPE IApplicationInfo : public virtual ICardObject {
public:
    enum ApplicationInfoType : std::uint32_t { TokenInfo };

    // Token flags (4 bits, PKCS#15 bit 0 the top one).
    enum TokenFlag : std::uint8_t {
        ReadOnly = 0x8,
        LoginRequired = 0x4,
        PrnGeneration = 0x2,
        EidCompliant = 0x1
    };

    virtual const std::int32_t& getVersion() const = 0;
    virtual void setVersion(std::int32_t version) = 0;
    // Setting an empty serial number clears it; such a token cannot be written.
    virtual const boost::optional<mw::ByteBuffer>& getSerialNumber() const = 0;
    virtual void setSerialNumber(const mw::ByteBuffer& serialNumber) = 0;
    virtual const boost::optional<std::string>& getManufacturerId() const = 0;
    virtual void setManufacturerId(const std::string& manufacturer) = 0;
    virtual const std::uint8_t& getTokenFlags() const = 0;
    virtual void setTokenFlags(std::uint8_t flags) = 0;
    // Dotted object identifiers of the algorithms the token supports.
    virtual const boost::optional<std::vector<std::string>>& getSupportedAlgorithms() const = 0;
    virtual void setSupportedAlgorithms(const std::vector<std::string>& algorithms) = 0;
    virtual const boost::optional<std::string>& getIssuerId() const = 0;
    virtual void setIssuerId(const std::string& issuer) = 0;
    virtual const boost::optional<std::string>& getHolderId() const = 0;
    virtual void setHolderId(const std::string& holder) = 0;
    // GeneralizedTime text ("20250101000000Z").
    virtual const boost::optional<std::string>& getLastUpdate() const = 0;
    virtual void setLastUpdate(const std::string& time) = 0;
    virtual const boost::optional<std::string>& getPreferredLanguage() const = 0;
    virtual void setPreferredLanguage(const std::string& language) = 0;
};

} // namespace object
} // namespace app

#endif
