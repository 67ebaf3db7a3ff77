#ifndef APP_PKCS15_FS_KEYDIRECTORYFILE_HPP
#define APP_PKCS15_FS_KEYDIRECTORYFILE_HPP

#include "app/pkcs15/fs/Allocation.hpp"
#include "app/pkcs15/fs/DirectoryFile.hpp"
#include "card/service/KeyRef.hpp"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <vector>

namespace card {
namespace service {
class IFileAccessService;
}
} // namespace card

namespace app {
namespace pkcs15 {
namespace fs {

// A directory file of keys (private or public) that the card holds.
template <class KeyType> class KeyDirectoryFile : public DirectoryFile<KeyType> {
public:
    // A key reference that no key of this file uses yet, for a key of
    // `modulusBits` (1024, 1536 or 2048).
    card::service::KeyRef getFreeKeyReference(const card::IChannel& channel,
                                              const card::service::IFileAccessService& /*files*/,
                                              unsigned short modulusBits) const {
        return freeKeyReference(*this, channel, modulusBits, holdsPrivateKeys(), exhaustedText());
    }

    // Card references of the RSA keys listed; other kinds of key are passed over.
    std::vector<card::service::KeyRef> keyRefs(const card::IChannel& channel) const {
        std::vector<card::service::KeyRef> refs;
        for (const KeyType& key : this->values(channel)) {
            card::service::KeyRef ref;
            if (keyRefOf(key, ref)) {
                refs.push_back(std::move(ref));
            }
        }
        return refs;
    }

    // The card reference of one entry; false for other kinds of key and for
    // entries without a key reference.
    bool keyRefOf(const KeyType& key, card::service::KeyRef& ref) const {
        return rsaKeyRef(key, ref);
    }

protected:
    using DirectoryFile<KeyType>::DirectoryFile;

    // The objects of the RSA key entries (choice `rsaChoice`) of `file`; see
    // DirectoryFile::objectsOf.
    template <class Object, class File>
    const std::vector<boost::shared_ptr<Object>>&
    rsaKeys(const File& file, const card::IChannel& channel, int rsaChoice,
            std::vector<boost::shared_ptr<Object>>& made) const {
        return this->objectsOf(
            file, channel, [rsaChoice](const KeyType& key) { return key.choice == rsaChoice; },
            made);
    }

    virtual bool holdsPrivateKeys() const = 0;
    virtual const char* exhaustedText() const = 0;
    // The card reference of an RSA key entry; false for other kinds of key
    // and for entries without a key reference.
    virtual bool rsaKeyRef(const KeyType& key, card::service::KeyRef& ref) const = 0;
};

} // namespace fs
} // namespace pkcs15
} // namespace app

#endif
