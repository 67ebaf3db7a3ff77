#include "tools/p15tool/Streams.hpp"

#include "tools/p15tool/ToolError.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

namespace p15tool {

namespace {

// What stdin is first read in when its size is not known; it doubles from
// there, so reading stays linear in the size.
constexpr std::size_t firstChunk = 64 * 1024;

std::string systemError() {
    return std::strerror(errno);
}

// A named input must be something that ends and holds the data itself.
void refuseKind(const struct stat& status, int descriptor, const std::string& path) {
    if (S_ISDIR(status.st_mode)) {
        throw ToolError(ExitCode::usage, path + " is a folder; give a file");
    }
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode) && ::isatty(descriptor) != 1) {
        throw ToolError(ExitCode::usage,
                        path + " is not a regular file, a pipe or a terminal; give a file");
    }
}

} // namespace

InputFile::InputFile(const std::string& path, std::uint64_t limit)
    : name_(path == "-" ? "the input" : path)
    , limit_(limit) {
    if (path == "-") {
        descriptor_ = STDIN_FILENO;
    } else {
        descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor_ < 0) {
            throw ToolError(errno == ENOENT ? ExitCode::notFound : ExitCode::failure,
                            "cannot read " + path + ": " + systemError());
        }
        owned_ = true;
    }
    try {
        inspect(path);
    } catch (...) {
        if (owned_) {
            ::close(descriptor_);
        }
        throw;
    }
}

void InputFile::inspect(const std::string& path) {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) {
        throw ToolError(ExitCode::failure, "cannot read " + name_ + ": " + systemError());
    }
    if (path != "-") {
        refuseKind(status, descriptor_, path);
    }
    if (S_ISREG(status.st_mode)) {
        knownSize_ = static_cast<std::uint64_t>(status.st_size);
    }
    if (knownSize_ && *knownSize_ > limit_) {
        throw ToolError(ExitCode::failure, name_ + " has " + std::to_string(*knownSize_) +
                                               " bytes, more than this command takes (" +
                                               std::to_string(limit_) + ")");
    }
}

InputFile::~InputFile() {
    if (owned_) {
        ::close(descriptor_);
    }
}

std::size_t InputFile::read(unsigned char* into, std::size_t room) {
    std::size_t got = 0;
    while (got < room) {
        const ssize_t count = ::read(descriptor_, into + got, room - got);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw ToolError(ExitCode::failure, "cannot read " + name_ + ": " + systemError());
        }
        if (count == 0) {
            break;
        }
        got += static_cast<std::size_t>(count);
    }
    taken_ += got;
    if (taken_ > limit_) {
        throw ToolError(ExitCode::failure, name_ + " is larger than " + std::to_string(limit_) +
                                               " bytes, more than this command takes");
    }
    return got;
}

mw::ByteBuffer readSome(InputFile& input, std::size_t count) {
    mw::ByteBuffer bytes(count);
    bytes.resize(input.read(bytes.data(), count));
    return bytes;
}

mw::ByteBuffer readInput(const std::string& path, std::size_t limit) {
    InputFile input(path, limit);
    // One byte more than the known size finds the end in the same read.
    const std::size_t ceiling = limit + 1;
    mw::ByteBuffer bytes(static_cast<std::size_t>(
        std::min<std::uint64_t>(input.knownSize() ? *input.knownSize() + 1 : firstChunk, ceiling)));
    std::size_t used = input.read(bytes.data(), bytes.size());
    while (used == bytes.size()) {
        bytes.resize(std::min(bytes.size() * 2, ceiling));
        used += input.read(bytes.data() + used, bytes.size() - used);
    }
    bytes.resize(used);
    return bytes;
}

namespace {

void writeAll(int descriptor, const mw::ByteBuffer& bytes, const std::string& name) {
    const unsigned char* at = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        const ssize_t count = ::write(descriptor, at, left);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw ToolError(ExitCode::failure, "cannot write " + name + ": " + systemError());
        }
        at += count;
        left -= static_cast<std::size_t>(count);
    }
}

// A file for a secret is its owner's before it holds anything: an existing
// regular file loses the others' rights first and its old content second.
int openOutput(const std::string& path, Exposure exposure) {
    const bool secret = exposure == Exposure::secret;
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (secret ? 0 : O_TRUNC),
               secret ? 0600 : 0666);
    if (descriptor < 0) {
        throw ToolError(ExitCode::failure, "cannot write " + path + ": " + systemError());
    }
    struct stat status {};
    if (secret && (::fstat(descriptor, &status) != 0 ||
                   (S_ISREG(status.st_mode) &&
                    (::fchmod(descriptor, 0600) != 0 || ::ftruncate(descriptor, 0) != 0)))) {
        const std::string error = systemError();
        ::close(descriptor);
        throw ToolError(ExitCode::failure,
                        "cannot make " + path + " readable by its owner only: " + error);
    }
    return descriptor;
}

} // namespace

void writeOutput(const std::string& path, const mw::ByteBuffer& bytes, bool binary,
                 Exposure exposure) {
    if (path == "-") {
        if (binary && stdoutIsTerminal()) {
            throw ToolError(ExitCode::usage,
                            "the result is binary; write it to a file with --out FILE, or pipe it");
        }
        std::cout.flush();
        writeAll(STDOUT_FILENO, bytes, "the output");
        return;
    }
    const int descriptor = openOutput(path, exposure);
    try {
        writeAll(descriptor, bytes, path);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
    if (::close(descriptor) != 0) {
        throw ToolError(ExitCode::failure, "cannot write " + path + ": " + systemError());
    }
}

bool stdoutIsTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool stderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace p15tool
