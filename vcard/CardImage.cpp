// The card image file: reading it safely and replacing it atomically.

#include "vcard/CardImage.hpp"

#include "vcard/CardLimits.hpp"
#include "vcard/Instrumentation.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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

/// The image is replaced by rename, which never follows a link; a link where the image should be
/// is still refused, so that nobody mistakes the file it points to for the card.
void refuseLink(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
        throw ImageError("card image '" + path + "' is a symbolic link: refused");
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

void syncDirectory(const std::string& path, Instrumentation* hooks) {
    FileDescriptor dir{::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (dir.fd < 0 || injectedFailure(hooks, SavePoint::DirectorySynced) || ::fsync(dir.fd) != 0)
        throw ImageNotSynced(
            systemError("card image replaced, but cannot sync the directory of", path));
    reach(hooks, SavePoint::DirectorySynced);
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

} // namespace

CardState CardImage::load(const std::string& path) {
    // O_NONBLOCK: opening a FIFO planted at the path must not hang the card.
    FileDescriptor file{::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (file.fd < 0 && errno == ELOOP)
        throw ImageError("card image '" + path + "' is a symbolic link: refused");
    if (file.fd < 0)
        throw ImageError(systemError("cannot open card image", path));
    struct stat info {};
    if (::fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode))
        throw ImageError("card image '" + path + "' is not a regular file");
    std::string text = readAll(file.fd, static_cast<std::size_t>(info.st_size), path);
    try {
        CardState state = parse(text, path);
        wipe(text);
        return state;
    } catch (...) {
        wipe(text);
        throw;
    }
}

void CardImage::store(const std::string& path, const std::string& text, Instrumentation* hooks) {
    refuseLink(path);
    std::string temporary = path + ".XXXXXX";
    FileDescriptor file{::mkostemp(temporary.data(), O_CLOEXEC)};
    if (file.fd < 0)
        throw ImageError(systemError("cannot create a temporary file for card image", path));
    try {
        if (injectedFailure(hooks, SavePoint::TempFileOpened))
            throw ImageError(systemError("cannot create a temporary file for card image", path));
        reach(hooks, SavePoint::TempFileOpened);
        writeTemporary(file.fd, text, temporary, hooks);
        if (injectedFailure(hooks, SavePoint::Renamed) ||
            ::rename(temporary.c_str(), path.c_str()) != 0)
            throw ImageError(systemError("cannot replace card image", path));
    } catch (const ImageError&) {
        ::unlink(temporary.c_str());
        throw;
    }
    reach(hooks, SavePoint::Renamed);
    syncDirectory(path, hooks);
}

} // namespace vcard
