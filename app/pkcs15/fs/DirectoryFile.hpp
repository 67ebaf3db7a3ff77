#ifndef APP_PKCS15_FS_DIRECTORYFILE_HPP
#define APP_PKCS15_FS_DIRECTORYFILE_HPP

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/P15File.hpp"
#include "app/pkcs15/oss/Codec.hpp"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>
#include <type_traits>
#include <vector>

namespace app {
namespace pkcs15 {
namespace fs {

// What kind of entry a value is, in words, for the notes on entries left out.
const char* entryKind(const oss::PrivateKeyType& value);
const char* entryKind(const oss::PublicKeyType& value);
const char* entryKind(const oss::CertificateType& value);
const char* entryKind(const oss::DataType& value);
const char* entryKind(const oss::AuthenticationType& value);
const char* entryKind(const oss::TokenInfo& value);
// "Common Object flags not PKCS#15 conform": why an entry could not be made
// into an object.
std::string failureText(const ApplicationException& error);

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

    bool keepsUndecoded() const override { return !std::is_same_v<Value, oss::TokenInfo>; }

    // An entry that does not decode stays in the file as an entry of an
    // unknown kind, written back byte for byte.
    void keepUndecoded(const std::uint8_t* data, std::size_t size) const override {
        if constexpr (!std::is_same_v<Value, oss::TokenInfo>) {
            Value value;
            value.choice = Value::unknown;
            value.raw.assign(data, data + size);
            values_.push_back(std::move(value));
        }
    }

    // The objects `make` makes of the entries that `listed` accepts, in file
    // order. An entry of another kind, or one that cannot be made into an
    // object, is left out with a note; it stays in the file.
    template <class Object, class Listed, class Make>
    std::vector<boost::shared_ptr<Object>> makeObjects(const card::IChannel& channel, Listed listed,
                                                       Make make) const {
        const std::vector<Value>& decoded = values(channel);
        const auto& encoded = this->entries(channel);
        std::vector<boost::shared_ptr<Object>> objects;
        for (std::size_t i = 0; i < decoded.size(); ++i) {
            const std::size_t offset = encoded[i].offset;
            if (!listed(decoded[i])) {
                if (!this->hasNote(offset)) {
                    this->addNote(offset,
                                  std::string("kept, not listed: ") + entryKind(decoded[i]));
                }
                continue;
            }
            try {
                objects.push_back(make(decoded[i], encoded[i].encoding));
            } catch (const ApplicationException& error) {
                this->addNote(offset, "cannot be read: " + failureText(error));
            }
        }
        return objects;
    }

    // The objects of the entries that `listed` accepts (see makeObjects),
    // made from `file` (this file, as the type the objects keep) when first
    // asked for and again after the file changed. The objects made before
    // stay alive until the next list replaces them: the object whose write
    // changed the file is still at work when the file forgets its entries.
    template <class Object, class File, class Listed>
    const std::vector<boost::shared_ptr<Object>>&
    objectsOf(const File& file, const card::IChannel& channel, Listed listed,
              std::vector<boost::shared_ptr<Object>>& made) const {
        values(channel);
        if (objectsMade_) {
            return made;
        }
        made =
            makeObjects<Object>(channel, listed, [&file](const Value& value, const auto& encoding) {
                return boost::make_shared<Object>(
                    boost::weak_ptr<const File>(file.shared_from_this()), value, encoding);
            });
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
