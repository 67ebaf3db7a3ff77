#ifndef APP_PKCS15_FS_DODF_HPP
#define APP_PKCS15_FS_DODF_HPP

#include "app/pkcs15/fs/ValueDirectoryFile.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <vector>

namespace app {
namespace pkcs15 {

namespace object {
class P15DataObject;
}

namespace fs {

// EF(DODF): the data objects of the application, whose values lie in files of their own.
class DODF : public ValueDirectoryFile<oss::DataType>, public boost::enable_shared_from_this<DODF> {
public:
    explicit DODF(const boost::weak_ptr<ODF>& odf)
        : ValueDirectoryFile(odf, P15File::DODF) {}
    ~DODF() override;
    const char* name() const override { return "EF(DODF)"; }

    // The opaque data objects with their value in a file, in file order; see
    // DirectoryFile::objectsOf. Other kinds of data object stay in the file.
    const std::vector<boost::shared_ptr<object::P15DataObject>>&
    dataObjects(const card::IChannel& channel) const;

protected:
    const char* exhaustedText() const override { return "maximum number of data objects reached"; }

private:
    mutable std::vector<boost::shared_ptr<object::P15DataObject>> dataObjects_;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
