#ifndef APP_PKCS15_OBJECT_P15DATAOBJECT_HPP
#define APP_PKCS15_OBJECT_P15DATAOBJECT_HPP

#include "app/object/AbstractDataObject.hpp"
#include "app/pkcs15/object/P15ValueObject.hpp"

namespace app {
namespace pkcs15 {

namespace fs {
class DODF;
}

namespace object {

// A data object of the application: one opaque entry of EF(DODF) and its
// value in a file of its own (see P15ValueObject).
class P15DataObject
    : public P15ValueObject<app::object::AbstractDataObject, fs::DODF, oss::DataType> {
public:
    // A new data object, not on the card yet. The DODF owns the objects it lists.
    explicit P15DataObject(boost::weak_ptr<const fs::DODF> dodf);
    // The data object of a DODF entry and the entry's bytes.
    P15DataObject(boost::weak_ptr<const fs::DODF> dodf, const oss::DataType& entry,
                  mw::ByteBuffer encoding);

    // Whether the DODF lists an entry as a data object of this class: an
    // opaque one whose value lies in a file.
    static bool isListed(const oss::DataType& entry) {
        return entry.choice == oss::DataType::opaqueDO &&
               entry.opaqueDOValue.typeAttributes.choice == oss::ObjectValue::indirect &&
               entry.opaqueDOValue.typeAttributes.indirectValue.choice ==
                   oss::ReferencedValue::path;
    }

    ObjectClass getObjectClass() const override { return DataObject; }

    oss::DataType encodeDataType(const ValueLocation& location) const;

protected:
    oss::DataType encodeEntry(const ValueLocation& location) const override {
        return encodeDataType(location);
    }
    // Data objects without rules get files of their own range, unlike
    // certificates.
    fs::AppObjectType valueFileType() const override {
        return hasRules() ? fs::ProtectedValueFile : fs::DataObjectFile;
    }
    const oss::CommonObjectAttributes&
    commonAttributesOf(const oss::DataType& entry) const override {
        return entry.opaqueDOValue.commonObjectAttributes;
    }

private:
    ValueLocation decodeDataType(const oss::DataType& entry);
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
