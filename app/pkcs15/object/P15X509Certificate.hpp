#ifndef APP_PKCS15_OBJECT_P15X509CERTIFICATE_HPP
#define APP_PKCS15_OBJECT_P15X509CERTIFICATE_HPP

#include "app/object/AbstractX509Certificate.hpp"
#include "app/pkcs15/object/P15ValueObject.hpp"

namespace app {
namespace pkcs15 {

namespace fs {
class CDF;
}

namespace object {

// An X.509 certificate of the application: one entry of EF(CDF) and the
// certificate in a file of its own (see P15ValueObject).
//
// The entry names the certificate's subject, issuer and serial number, as
// the host sets them or as the certificate value gives them.
//
// Its key usage is the keyUsage of the entry's trustedUsage, 9 bits: a
// string of 10 or more bits is refused, as there is no place for a tenth.
class P15X509Certificate
    : public P15ValueObject<app::object::AbstractX509Certificate, fs::CDF, oss::CertificateType> {
public:
    // A new certificate, not on the card yet. The CDF owns the certificates it lists.
    explicit P15X509Certificate(boost::weak_ptr<const fs::CDF> cdf);
    // The certificate of a CDF entry and the entry's bytes.
    P15X509Certificate(boost::weak_ptr<const fs::CDF> cdf, const oss::CertificateType& entry,
                       mw::ByteBuffer encoding);

    // Whether the CDF lists an entry as a certificate of this class.
    static bool isListed(const oss::CertificateType& entry) {
        return entry.choice == oss::CertificateType::x509Certificate;
    }

    ObjectClass getObjectClass() const override { return CertificateObject; }
    // Also takes the subject, issuer and serial number from a DER X.509
    // certificate, for those the host did not set itself.
    void setValue(const mw::ByteBuffer& value) override;

    oss::CertificateType encodeCertificateType(const ValueLocation& location) const;

protected:
    oss::CertificateType encodeEntry(const ValueLocation& location) const override {
        return encodeCertificateType(location);
    }
    fs::AppObjectType valueFileType() const override {
        return hasRules() ? fs::ProtectedValueFile : fs::CertificateFile;
    }
    const oss::CommonObjectAttributes&
    commonAttributesOf(const oss::CertificateType& entry) const override {
        return entry.x509CertificateValue.commonObjectAttributes;
    }

private:
    ValueLocation decodeCertificateType(const oss::CertificateType& entry);
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
