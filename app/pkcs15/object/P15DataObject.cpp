#include "app/pkcs15/object/P15DataObject.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/object/CommonAttributes.hpp"

namespace app {
namespace pkcs15 {
namespace object {

namespace {

const ValueObjectTexts dataObjectTexts{"data object value size exceeds 65535 bytes",
                                       "encoded data object size exceeds 65535 bytes",
                                       "EF(DODF) out of memory", "data object is not on the card"};

} // namespace

P15DataObject::P15DataObject(boost::weak_ptr<const fs::DODF> dodf)
    : P15ValueObject(std::move(dodf), dataObjectTexts) {}

P15DataObject::P15DataObject(boost::weak_ptr<const fs::DODF> dodf, const oss::DataType& entry,
                             mw::ByteBuffer encoding)
    : P15DataObject(std::move(dodf)) {
    ValueLocation location = decodeDataType(entry);
    keepEntry(entry, std::move(encoding), std::move(location));
}

ValueLocation P15DataObject::decodeDataType(const oss::DataType& entry) {
    if (!isListed(entry)) {
        APP_THROW(InvalidDataException, "PKCS#15 DataObject of unknown type found");
    }
    const oss::OpaqueDataObject& object = entry.opaqueDOValue;
    loadCommonObjectAttributes(object.commonObjectAttributes, *this, valueObjectFlags);
    const oss::CommonDataObjectAttributes& common = object.classAttributes;
    boost::optional<std::string> name;
    if (common.applicationName && !common.applicationName->empty()) {
        name = common.applicationName;
    }
    applicationName_.load(name);
    boost::optional<mw::ByteBuffer> oid;
    if (common.applicationOID && !common.applicationOID->empty()) {
        oid = mw::ByteBuffer(*common.applicationOID);
    }
    applicationOid_.load(oid);
    return decodeValueLocation(object.typeAttributes);
}

oss::DataType P15DataObject::encodeDataType(const ValueLocation& location) const {
    oss::DataType entry = this->entry() ? *this->entry() : oss::DataType();
    const Store which = this->entry() ? Store::Touched : Store::All;
    oss::OpaqueDataObject& object = entry.opaqueDOValue;
    storeObjectAttributes(*this, which, object.commonObjectAttributes,
                          "access control rules of a data object on the card cannot be changed",
                          valueObjectFlags);
    oss::CommonDataObjectAttributes& common = object.classAttributes;
    if (isStored(applicationName_, which)) {
        common.applicationName = *getApplicationName();
    }
    if (isStored(applicationOid_, which)) {
        const mw::ByteBuffer& oid = *getApplicationOid();
        common.applicationOID = oss::Bytes(oid.begin(), oid.end());
    }
    storeValueLocation(location, object.typeAttributes);
    return entry;
}

} // namespace object
} // namespace pkcs15
} // namespace app
