#ifndef APP_PKCS15_DETAIL_WIPE_HPP
#define APP_PKCS15_DETAIL_WIPE_HPP

#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/fs/P15File.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace card {
class CardException;
class IChannel;
} // namespace card

namespace app {
namespace pkcs15 {

class P15Application;

namespace oss {
struct CertificateType;
struct DataType;
} // namespace oss

namespace fs {
class CDF;
class DODF;
template <class KeyType> class KeyDirectoryFile;
} // namespace fs

namespace detail {

// One wipe of the application's objects from the card, keeping "every
// listed object exists" true at every command: entries leave their
// directory file before the files and keys they name are deleted, and an
// entry whose object the card refuses to delete is put back. A structural
// file, a file outside the application's identifier ranges and an object of
// a kind the application does not know stay on the card and listed. One
// failure does not stop the rest; everything left is reported at the end in
// one app::ApplicationException.
class Wipe {
public:
    Wipe(const P15Application& application, const card::IChannel& channel);
    Wipe(const Wipe&) = delete;
    Wipe& operator=(const Wipe&) = delete;

    // Removes the listed objects and, when `forced`, whatever else the
    // allocation ranges hold.
    void run(bool forced);

private:
    // What an entry names on the card besides itself.
    struct Target {
        enum Kind { nothing, valueFile, privateKey, publicKey } kind = nothing;
        mw::ByteBuffer path;
        card::service::KeyRef key;
    };
    struct Listed {
        fs::P15File::Entry entry;
        bool targeted = false; // its entry is dropped and its target deleted
        Target target;
        bool removed = false; // its target is gone: the entry stays out
    };
    struct Directory {
        const fs::P15File* file;
        mw::ByteBuffer original;
        std::size_t used;
        std::vector<Listed> listed;
    };
    using KeyId = std::pair<bool, unsigned char>; // private?, key reference

    // Fill in what an entry names; false for objects the wipe cannot remove.
    static bool targetOf(const fs::CDF& file, const oss::CertificateType& certificate,
                         Target& target);
    static bool targetOf(const fs::DODF& file, const oss::DataType& data, Target& target);
    template <class Key>
    static bool targetOf(const fs::KeyDirectoryFile<Key>& file, const Key& key, Target& target);
    static std::string nameOf(const Target& target);

    void collectStructuralFiles();
    template <class File> void plan(const File& file);
    void classify(Listed& listed, const std::string& name);
    void keep(const Target& target);
    bool isValueFile(const mw::ByteBuffer& path) const;
    bool isStructural(const mw::ByteBuffer& path) const;
    void dropEntries(Directory& directory);
    void removeTargets(Directory& directory);
    void restoreEntries(Directory& directory);
    void sweepValueFiles();
    void sweepKeys();
    bool remove(const Target& target, const std::string& what);
    void leave(const std::string& what, const std::string& why);
    void leave(const std::string& what, const card::CardException& failure);
    void store(const Directory& directory, const mw::ByteBuffer& content) const;
    mw::ByteBuffer contentWithout(const Directory& directory, bool (*gone)(const Listed&)) const;
    void report() const;

    const P15Application& application_;
    const card::IChannel& channel_;
    std::vector<mw::ByteBuffer> structural_;
    std::vector<Directory> directories_;
    // Paths and keys already dealt with, or named by an entry that stays.
    std::vector<mw::ByteBuffer> handledPaths_;
    std::set<KeyId> handledKeys_;
    std::vector<std::string> left_;
};

} // namespace detail
} // namespace pkcs15
} // namespace app

#endif
