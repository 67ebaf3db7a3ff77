#pragma once

#include "vcard/CardState.hpp"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace vcard {

class Instrumentation;

/// A card image that cannot be read, or a state that cannot be written.
class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The new image replaced the old one, but its directory could not be synced afterwards: the
/// change is stored, though a power loss could still take it back.
class ImageNotSynced : public ImageError {
public:
    using ImageError::ImageError;
};

/// The image stayed locked by another process for longer than the caller would wait.
class ImageBusy : public ImageError {
public:
    using ImageError::ImageError;
};

/// Who besides its owner (and root) may write an image's folder and the image.
enum class ImageAccess {
    /// Nobody: a folder or image writable by its group or others is refused. A sticky folder
    /// (as /tmp) passes, since there only a file's owner may rename or remove it.
    OwnerOnly,
    /// Any user the modes allow: for a folder shared on purpose.
    Shared,
};

/// Which version of an image file a process last read or wrote. Inode numbers are reused once a
/// rename frees one, so size and both times (in ns) count too.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    bool operator==(const FileIdentity& other) const;
};

/// An image reached through its folder, opened once: every later read, lock, write, rename and
/// sync happens relative to that folder, so that swapping the folder (or a folder above it) for
/// a link never sends a save elsewhere.
class ImageFile {
public:
    /// Opens the folder of path (which must be a folder, not a link to one). Throws ImageError
    /// when it cannot, or when access is OwnerOnly and the folder is writable by others.
    explicit ImageFile(const std::string& path, ImageAccess access = ImageAccess::OwnerOnly);
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    const std::string& path() const { return path_; }

    /// Reads and parses the image and remembers its identity; the file is never modified. An
    /// image that is a link, not a regular file, or (OwnerOnly) writable by others is refused.
    CardState load();
    /// Whether the image is no longer the one this object last loaded, stored or assumed (also
    /// when it is gone, or came since).
    bool changed() const;
    /// Takes the image as it is now (or its absence) for the one the caller holds in memory.
    void assumeCurrent();
    /// Writes the text to a new temporary file (O_EXCL, random name) beside the image, gives it
    /// the owner, group and mode of the image it replaces (a new image: the caller's, mode 0600),
    /// syncs it, renames it over the image and syncs the folder, so that a crash leaves either
    /// the old or the new image. An image that is a link is refused. Throws ImageError when the
    /// image was not replaced (the temporary file is removed), ImageNotSynced when only the
    /// folder sync failed. hooks, when given, may stop or fail the save at each SavePoint.
    void store(const std::string& text, Instrumentation* hooks = nullptr);

    /// Takes the exclusive lock on "<image>.lock" beside the image (created with the image's
    /// owner and mode), waiting at most limit for another holder; ImageBusy after that.
    void lock(std::chrono::milliseconds limit);
    void unlock();

private:
    std::optional<struct stat> imageStatus() const;
    std::optional<FileIdentity> identity() const;
    void refuseShared(const struct stat& status, const char* what) const;

    std::string path_;
    std::string name_;
    ImageAccess access_;
    int folder_ = -1;
    int lock_ = -1;
    std::optional<FileIdentity> seen_;
};

/// The whole persistent card state as one versioned JSON document (bytes in hex, private keys
/// included); ImageFile stores it.
class CardImage {
public:
    static constexpr int version = 1;

    static std::string serialise(const CardState& state);
    /// Throws ImageError naming source and the first thing found wrong.
    static CardState parse(const std::string& text, const std::string& source);

    /// ImageFile::load once, for a path in a folder of any access.
    static CardState load(const std::string& path);
    /// ImageFile::store once, for a path in a folder of any access.
    static void store(const std::string& path, const std::string& text,
                      Instrumentation* hooks = nullptr);
};

} // namespace vcard
