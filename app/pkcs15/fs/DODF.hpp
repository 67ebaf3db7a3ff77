#ifndef APP_PKCS15_FS_DODF_HPP
#define APP_PKCS15_FS_DODF_HPP

#include "app/pkcs15/fs/ValueDirectoryFile.hpp"

namespace app {
namespace pkcs15 {
namespace fs {

// EF(DODF): the data objects of the application, whose values lie in files of their own.
class DODF : public ValueDirectoryFile<oss::DataType> {
public:
    explicit DODF(const boost::weak_ptr<ODF>& odf)
        : ValueDirectoryFile(odf, P15File::DODF) {}
    const char* name() const override { return "EF(DODF)"; }

protected:
    const char* exhaustedText() const override { return "maximum number of data objects reached"; }
    const oss::Path* valuePath(const oss::DataType& object) const override {
        return object.choice == oss::DataType::opaqueDO
                   ? indirectPath(object.opaqueDOValue.typeAttributes)
                   : nullptr;
    }
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
