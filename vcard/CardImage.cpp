// The card image file: reading it safely, replacing it atomically, locking it between processes.

#include "vcard/CardImage.hpp"

#include "vcard/CardLimits.hpp"
#include "vcard/Instrumentation.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace vcard {

namespace {

std::string systemError(const std::string& what, const std::string& path) {
    return what + " '" + path + "': " + std::strerror(errno);
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Closes the descriptor however the save ends.
struct FileDescriptor {
    int fd;
    ~FileDescriptor() {
        if (fd >= 0)
            ::close(fd);
    }
};

/// Whether the hooks make this step of the save fail, as an I/O error would: the step is then
/// not taken.
bool injectedFailure(Instrumentation* hooks, SavePoint point) {
    if (hooks == nullptr || !hooks->saveStepFails(point))
        return false;
    errno = EIO;
    return true;
}

void reach(Instrumentation* hooks, SavePoint point) {
    if (hooks != nullptr)
        hooks->reachSavePoint(point);
}

void writeAll(int fd, const char* data, std::size_t size, const std::string& path) {
    while (size > 0) {
        ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw ImageError(systemError("cannot write card image", path));
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void writeTemporary(int fd, const std::string& text, const std::string& temporary,
                    Instrumentation* hooks) {
    const std::size_t half = text.size() / 2;
    writeAll(fd, text.data(), half, temporary);
    reach(hooks, SavePoint::HalfWritten);
    writeAll(fd, text.data() + half, text.size() - half, temporary);
    if (injectedFailure(hooks, SavePoint::Written))
        throw ImageError(systemError("cannot write card image", temporary));
    reach(hooks, SavePoint::Written);
    if (injectedFailure(hooks, SavePoint::Synced) || ::fsync(fd) != 0)
        throw ImageError(systemError("cannot sync card image", temporary));
    reach(hooks, SavePoint::Synced);
}

/// The image holds PINs and keys: it is read straight into text reserved for the whole file, so
/// that no growing leaves a copy behind, and the caller wipes the text.
std::string readAll(int fd, std::size_t expectedSize, const std::string& path) {
    std::string text;
    text.reserve(std::min(expectedSize, limits::maxImageSize) + 1);
    for (;;) {
        const std::size_t used = text.size();
        if (used == text.capacity()) {
            std::string larger;
            larger.reserve(std::min(2 * used, limits::maxImageSize + 1));
            larger.assign(text);
            wipe(text);
            text.swap(larger);
        }
        text.resize(text.capacity());
        const ssize_t got = ::read(fd, text.data() + used, text.size() - used);
        text.resize(used + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            wipe(text);
            throw ImageError(systemError("cannot read card image", path));
        }
        if (got == 0)
            return text;
        if (text.size() > limits::maxImageSize) {
            wipe(text);
            throw ImageError("card image '" + path + "' is larger than " +
                             std::to_string(limits::maxImageSize) + " bytes");
        }
    }
}

std::string nameOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

FileIdentity identityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// A new file of a random name beside the image, made with O_EXCL so that nothing planted at a
/// guessable name is opened; name receives its name.
int createTemporary(int folder, const std::string& image, std::string& name) {
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
        name = image + ".";
        for (int i = 0; i < 6; ++i)
            name += letters[random() % (sizeof letters - 1)];
        const int fd = ::openat(folder, name.c_str(),
                                O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

/// A file made for an image (its replacement, its lock) gets the image's owner, group and mode,
/// so that a save by root leaves a user's image the user's.
bool takeOwnerAndMode(int fd, const std::optional<struct stat>& image) {
    if (!image)
        return true;
    struct stat made {};
    if (::fstat(fd, &made) != 0)
        return false;
    if ((made.st_uid != image->st_uid || made.st_gid != image->st_gid) &&
        ::fchown(fd, image->st_uid, image->st_gid) != 0)
        return false;
    return ::fchmod(fd, image->st_mode & 07777) == 0;
}

} // namespace

bool FileIdentity::operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           sameTime(modified, other.modified) && sameTime(changed, other.changed);
}

ImageFile::ImageFile(const std::string& path, ImageAccess access)
    : path_(path)
    , name_(nameOf(path))
    , access_(access) {
    const std::string folder = directoryOf(path);
    folder_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder_ < 0 && errno == ELOOP)
        throw ImageError("the folder of card image '" + path + "' is a symbolic link: refused");
    if (folder_ < 0)
        throw ImageError(systemError("cannot open the folder of card image", path));
    struct stat status {};
    try {
        if (name_.empty() || ::fstat(folder_, &status) != 0)
            throw ImageError("card image '" + path + "' names no file in a folder");
        // Where only a file's owner may rename or remove it, other writers cannot reach the image.
        if (!(status.st_mode & S_ISVTX))
            refuseShared(status, "folder of card image");
    } catch (...) {
        ::close(folder_);
        throw;
    }
}

ImageFile::~ImageFile() {
    unlock();
    ::close(folder_);
}

void ImageFile::refuseShared(const struct stat& status, const char* what) const {
    if (access_ == ImageAccess::OwnerOnly && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw ImageError(std::string("the ") + what + " '" + path_ +
                         "' is writable by its group or others: refused");
}

std::optional<struct stat> ImageFile::imageStatus() const {
    struct stat status {};
    if (::fstatat(folder_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return status;
}

CardState ImageFile::load() {
    // O_NONBLOCK: opening a FIFO planted at the path must not hang the card.
    FileDescriptor file{
        ::openat(folder_, name_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (file.fd < 0 && errno == ELOOP)
        throw ImageError("card image '" + path_ + "' is a symbolic link: refused");
    if (file.fd < 0)
        throw ImageError(systemError("cannot open card image", path_));
    struct stat info {};
    if (::fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode))
        throw ImageError("card image '" + path_ + "' is not a regular file");
    refuseShared(info, "card image");
    std::string text = readAll(file.fd, static_cast<std::size_t>(info.st_size), path_);
    try {
        CardState state = CardImage::parse(text, path_);
        wipe(text);
        seen_ = identityOf(info);
        return state;
    } catch (...) {
        wipe(text);
        throw;
    }
}

std::optional<FileIdentity> ImageFile::identity() const {
    const std::optional<struct stat> status = imageStatus();
    return status ? std::optional<FileIdentity>(identityOf(*status)) : std::nullopt;
}

bool ImageFile::changed() const {
    return !(identity() == seen_);
}

void ImageFile::assumeCurrent() {
    seen_ = identity();
}

void ImageFile::store(const std::string& text, Instrumentation* hooks) {
    const std::optional<struct stat> old = imageStatus();
    if (old && S_ISLNK(old->st_mode))
        throw ImageError("card image '" + path_ + "' is a symbolic link: refused");
    std::string temporary;
    FileDescriptor file{createTemporary(folder_, name_, temporary)};
    if (file.fd < 0)
        throw ImageError(systemError("cannot create a temporary file for card image", path_));
    try {
        if (injectedFailure(hooks, SavePoint::TempFileOpened) || !takeOwnerAndMode(file.fd, old))
            throw ImageError(systemError("cannot prepare a temporary file for card image", path_));
        reach(hooks, SavePoint::TempFileOpened);
        writeTemporary(file.fd, text, path_ + temporary.substr(name_.size()), hooks);
        if (injectedFailure(hooks, SavePoint::Renamed) ||
            ::renameat(folder_, temporary.c_str(), folder_, name_.c_str()) != 0)
            throw ImageError(systemError("cannot replace card image", path_));
    } catch (const ImageError&) {
        ::unlinkat(folder_, temporary.c_str(), 0);
        throw;
    }
    struct stat stored {};
    if (::fstat(file.fd, &stored) == 0)
        seen_ = identityOf(stored);
    reach(hooks, SavePoint::Renamed);
    if (injectedFailure(hooks, SavePoint::DirectorySynced) || ::fsync(folder_) != 0)
        throw ImageNotSynced(
            systemError("card image replaced, but cannot sync the folder of", path_));
    reach(hooks, SavePoint::DirectorySynced);
}

void ImageFile::lock(std::chrono::milliseconds limit) {
    const std::string name = name_ + ".lock";
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    lock_ = ::openat(folder_, name.c_str(), flags | O_CREAT | O_EXCL, 0600);
    // A lock file made by root (the bridge) stays openable by the image's owner.
    if (lock_ >= 0)
        takeOwnerAndMode(lock_, imageStatus());
    else if (errno == EEXIST)
        lock_ = ::openat(folder_, name.c_str(), flags);
    struct stat status {};
    if (lock_ < 0 || ::fstat(lock_, &status) != 0 || !S_ISREG(status.st_mode)) {
        const std::string error =
            lock_ < 0 ? systemError("cannot open the lock file of card image", path_)
                      : "the lock file of card image '" + path_ + "' is not a regular file";
        unlock();
        throw ImageError(error);
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    auto pause = std::chrono::milliseconds(1);
    while (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            throw ImageError(systemError("cannot lock card image", path_));
        if (std::chrono::steady_clock::now() >= deadline)
            throw ImageBusy("card image '" + path_ +
                            "' is in use by another process: not free after " +
                            std::to_string(limit.count()) + " ms");
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
}

void ImageFile::unlock() {
    // Closing the only descriptor of the lock file lets go of the lock.
    if (lock_ >= 0)
        ::close(lock_);
    lock_ = -1;
}

CardState CardImage::load(const std::string& path) {
    return ImageFile(path, ImageAccess::Shared).load();
}

void CardImage::store(const std::string& path, const std::string& text, Instrumentation* hooks) {
    ImageFile(path, ImageAccess::Shared).store(text, hooks);
}

} // namespace vcard
