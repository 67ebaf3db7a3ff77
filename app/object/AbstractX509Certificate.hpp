#ifndef APP_OBJECT_ABSTRACTX509CERTIFICATE_HPP
#define APP_OBJECT_ABSTRACTX509CERTIFICATE_HPP

#include "app/object/AbstractCertificate.hpp"
#include "app/object/IX509Certificate.hpp"

namespace app {
namespace object {

// The attribute values of an X.509 certificate.
class AbstractX509Certificate : public virtual IX509Certificate, public AbstractCertificate {
public:
    const boost::optional<mw::ByteBuffer>& getSubject() const override { return subject_.get(); }
    void setSubject(const mw::ByteBuffer& name) override { subject_.set(name); }
    const boost::optional<mw::ByteBuffer>& getIssuer() const override { return issuer_.get(); }
    void setIssuer(const mw::ByteBuffer& name) override { issuer_.set(name); }
    const boost::optional<mw::ByteBuffer>& getSerialNumber() const override {
        return serialNumber_.get();
    }
    void setSerialNumber(const mw::ByteBuffer& serialNumber) override {
        serialNumber_.set(serialNumber);
    }

    OptionalValue<mw::ByteBuffer>& subjectHolder() { return subject_; }
    const OptionalValue<mw::ByteBuffer>& subjectHolder() const { return subject_; }
    OptionalValue<mw::ByteBuffer>& issuerHolder() { return issuer_; }
    const OptionalValue<mw::ByteBuffer>& issuerHolder() const { return issuer_; }
    OptionalValue<mw::ByteBuffer>& serialNumberHolder() { return serialNumber_; }
    const OptionalValue<mw::ByteBuffer>& serialNumberHolder() const { return serialNumber_; }

    bool isTouched() const override {
        return AbstractCertificate::isTouched() || subject_.isTouched() || issuer_.isTouched() ||
               serialNumber_.isTouched();
    }
    void clearTouched() const override {
        AbstractCertificate::clearTouched();
        subject_.clearTouched();
        issuer_.clearTouched();
        serialNumber_.clearTouched();
    }

protected:
    OptionalValue<mw::ByteBuffer> subject_;
    OptionalValue<mw::ByteBuffer> issuer_;
    OptionalValue<mw::ByteBuffer> serialNumber_;
};

} // namespace object
} // namespace app

#endif
