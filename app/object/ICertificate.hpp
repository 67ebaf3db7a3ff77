#ifndef APP_OBJECT_ICERTIFICATE_HPP
#define APP_OBJECT_ICERTIFICATE_HPP

#include "app/object/ICardObject.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/optional.hpp>
#include <cstdint>

namespace app {
namespace object {

// A certificate stored on the card: its attributes in the certificate
// directory, its value in a file of its own.
class MW_EXPORT_TYPE ICertificate : public virtual ICardObject {
public:
    enum CertificateType : std::uint32_t { X509Certificate, AttributeCertificate };

    // Key usage the certificate is trusted for: 9 bits, PKCS#15 bit 0 the
    // top one (there is no place for nonRepudiation).
    enum KeyUsage : std::uint16_t {
        Encrypt = 0x100,
        Decrypt = 0x080,
        Sign = 0x040,
        SignRecover = 0x020,
        Wrap = 0x010,
        Unwrap = 0x008,
        Verify = 0x004,
        VerifyRecover = 0x002,
        Derive = 0x001
    };

    // The identifier that ties the certificate to its key (the key's iD).
    virtual const mw::ByteBuffer& getCertificateId() const = 0;
    virtual void setCertificateId(const mw::ByteBuffer& id) = 0;
    // Whether it is the certificate of an authority.
    virtual const bool& getAuthority() const = 0;
    virtual void setAuthority(bool authority) = 0;
    virtual const boost::optional<std::uint16_t>& getKeyUsage() const = 0;
    virtual void setKeyUsage(std::uint16_t usage) = 0;
    // The encoded certificate: empty until read from the card or set.
    virtual const mw::ByteBuffer& getValue() const = 0;
    virtual void setValue(const mw::ByteBuffer& value) = 0;
};

} // namespace object
} // namespace app

#endif
