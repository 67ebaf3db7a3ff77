#ifndef APP_OBJECT_IX509CERTIFICATE_HPP
#define APP_OBJECT_IX509CERTIFICATE_HPP

#include "app/object/ICertificate.hpp"

namespace app {
namespace object {

// An X.509 certificate. The names are DER Name values, the serial number
// the content octets of the certificate's serialNumber INTEGER.
class MW_EXPORT_TYPE IX509Certificate : public virtual ICertificate {
public:
    virtual const boost::optional<mw::ByteBuffer>& getSubject() const = 0;
    virtual void setSubject(const mw::ByteBuffer& name) = 0;
    virtual const boost::optional<mw::ByteBuffer>& getIssuer() const = 0;
    virtual void setIssuer(const mw::ByteBuffer& name) = 0;
    virtual const boost::optional<mw::ByteBuffer>& getSerialNumber() const = 0;
    virtual void setSerialNumber(const mw::ByteBuffer& serialNumber) = 0;
};

} // namespace object
} // namespace app

#endif
