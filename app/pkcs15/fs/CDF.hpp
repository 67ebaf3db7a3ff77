#ifndef APP_PKCS15_FS_CDF_HPP
#define APP_PKCS15_FS_CDF_HPP

#include "app/pkcs15/fs/ValueDirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <vector>

namespace app {
namespace pkcs15 {

namespace object {
class P15X509Certificate;
}

namespace fs {

// EF(CDF): the certificates of the application, whose values lie in files of their own.
class CDF : public ValueDirectoryFile<oss::CertificateType>,
            public boost::enable_shared_from_this<CDF> {
public:
    explicit CDF(const boost::weak_ptr<ODF>& odf)
        : ValueDirectoryFile(odf, P15File::CDF) {}
    ~CDF() override;
    const char* name() const override { return "EF(CDF)"; }

    // The X.509 certificates of the file, in file order; see
    // DirectoryFile::objectsOf. Other kinds of certificate stay in the file.
    const std::vector<boost::shared_ptr<object::P15X509Certificate>>&
    certificates(const card::IChannel& channel) const;

protected:
    const char* exhaustedText() const override { return "maximum number of certificates reached"; }

private:
    mutable std::vector<boost::shared_ptr<object::P15X509Certificate>> certificates_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
