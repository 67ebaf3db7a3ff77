#ifndef APP_PKCS15_FS_CDF_HPP
#define APP_PKCS15_FS_CDF_HPP

#include "app/pkcs15/fs/ValueDirectoryFile.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

// EF(CDF): the certificates of the application, whose values lie in files of their own.
class CDF : public ValueDirectoryFile<oss::CertificateType> {
public:
    explicit CDF(const boost::weak_ptr<ODF>& odf)
        : ValueDirectoryFile(odf, P15File::CDF) {}
    const char* name() const override { return "EF(CDF)"; }

protected:
    const char* exhaustedText() const override { return "maximum number of certificates reached"; }
    const oss::Path* valuePath(const oss::CertificateType& object) const override {
        return object.choice == oss::CertificateType::x509Certificate
                   ? indirectPath(object.x509CertificateValue.typeAttributes.value)
                   : nullptr;
    }
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
