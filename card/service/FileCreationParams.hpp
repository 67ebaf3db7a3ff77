#ifndef CARD_SERVICE_FILECREATIONPARAMS_HPP
#define CARD_SERVICE_FILECREATIONPARAMS_HPP

#include "card/service/KeyRef.hpp"
#include "card/service/SecurityConditions.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <vector>

namespace card {
namespace service {

// Access modes of a created file or key, as bits: read, update (includes
// delete), execute (use of a key).
enum AccessMode : unsigned short { AccessRead = 0x4, AccessUpdate = 0x2, AccessExecute = 0x1 };

// The condition that guards the access modes whose bits are set.
struct AccessCondition {
    unsigned short accessModes = 0;
    SecurityConditionPtr condition;
};

using AccessConditions = std::vector<AccessCondition>;

class MW_EXPORT_TYPE IFileCreationParams {
public:
    virtual ~IFileCreationParams() = default;
    virtual const AccessConditions& accessConditions() const = 0;
};

// A transparent elementary file holding a certificate or a data object.
class MW_EXPORT_TYPE DataObjectCreateParams : public IFileCreationParams {
public:
    DataObjectCreateParams(mw::ByteBuffer path, std::size_t size, AccessConditions conditions)
        : path_(std::move(path))
        , size_(size)
        , conditions_(std::move(conditions)) {}
    const AccessConditions& accessConditions() const override { return conditions_; }
    // Path of the new file; its parent DF must exist.
    const mw::ByteBuffer& path() const { return path_; }
    std::size_t size() const { return size_; }

private:
    mw::ByteBuffer path_;
    std::size_t size_;
    AccessConditions conditions_;
};

// Base of the two key containers of a key pair.
class MW_EXPORT_TYPE KeyCreateParams : public IFileCreationParams {
public:
    KeyCreateParams(KeyRef keyRef, AccessConditions conditions)
        : keyRef_(std::move(keyRef))
        , conditions_(std::move(conditions)) {}
    const AccessConditions& accessConditions() const override { return conditions_; }
    const KeyRef& keyRef() const { return keyRef_; }

private:
    KeyRef keyRef_;
    AccessConditions conditions_;
};

class MW_EXPORT_TYPE PrivateKeyCreateParams : public KeyCreateParams {
public:
    using KeyCreateParams::KeyCreateParams;
};

class MW_EXPORT_TYPE PublicKeyCreateParams : public KeyCreateParams {
public:
    using KeyCreateParams::KeyCreateParams;
};

} // namespace service
} // namespace card

#endif
