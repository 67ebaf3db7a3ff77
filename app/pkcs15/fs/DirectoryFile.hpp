#ifndef APP_PKCS15_FS_DIRECTORYFILE_HPP
#define APP_PKCS15_FS_DIRECTORYFILE_HPP

#include "app/pkcs15/fs/P15File.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
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

    // The objects of the entries that `listed` accepts, in file order, made
    // from `file` (this file, as the type the objects keep) when first asked
    // for and again after the file changed. Entries of other kinds are not
    // listed; they stay in the file. The objects made before stay alive until
    // the next list replaces them: the object whose write changed the file is
    // still at work when the file forgets its entries.
    template <class Object, class File, class Listed>
    const std::vector<boost::shared_ptr<Object>>&
    objectsOf(const File& file, const card::IChannel& channel, Listed listed,
              std::vector<boost::shared_ptr<Object>>& made) const {
        const std::vector<Value>& decoded = values(channel);
        if (objectsMade_) {
            return made;
        }
        const auto& encoded = this->entries(channel);
        std::vector<boost::shared_ptr<Object>> objects;
        for (std::size_t i = 0; i < decoded.size(); ++i) {
            if (listed(decoded[i])) {
                objects.push_back(
                    boost::make_shared<Object>(boost::weak_ptr<const File>(file.shared_from_this()),
                                               decoded[i], encoded[i].encoding));
            }
        }
        made = std::move(objects);
        objectsMade_ = true;
        return made;
    }

    void forgetDecoded() const override {
        values_.clear();
        objectsMade_ = false;
    }

private:
    mutable std::vector<Value> values_;
    mutable bool objectsMade_ = false;
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
