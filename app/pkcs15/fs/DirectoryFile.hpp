#ifndef APP_PKCS15_FS_DIRECTORYFILE_HPP
#define APP_PKCS15_FS_DIRECTORYFILE_HPP

#include "app/pkcs15/fs/P15File.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <vector>

namespace app {
namespace pkcs15 {
namespace fs {

// A directory file whose entries decode to `Value` (one of the PKCS#15
// object type CHOICEs). Entries of kinds the system does not interpret
// decode to their raw alternative and stay in the file untouched.
template <class Value> class DirectoryFile : public P15File {
public:
    using P15File::P15File;

    // The decoded entries, in file order.
    const std::vector<Value>& values(const card::IChannel& channel) const {
        ensureLoaded(channel);
        return values_;
    }

protected:
    std::size_t decodeEntry(const std::uint8_t* data, std::size_t size) const override {
        Value value;
        const std::size_t used = oss::decode(data, size, value);
        values_.push_back(std::move(value));
        return used;
    }

    void forgetDecoded() const override { values_.clear(); }

private:
    mutable std::vector<Value> values_;
};

// The path of an object's indirect value, if it has one.
inline const oss::Path* indirectPath(const oss::ObjectValue& value) {
    if (value.choice != oss::ObjectValue::indirect ||
        value.indirectValue.choice != oss::ReferencedValue::path) {
        return nullptr;
    }
    return &value.indirectValue.pathValue;
}

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
