#ifndef TOOLS_P15TOOL_STREAMS_HPP
#define TOOLS_P15TOOL_STREAMS_HPP

#include "mw/ByteBuffer.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace p15tool {

/// An input a command reads with plain system calls, so that no stream
/// buffer keeps a copy of it: the file `path`, or stdin for "-". A named
/// input must be a regular file, a FIFO or a terminal; a folder, a device
/// or a socket is a usage ToolError naming the path. A regular file larger
/// than `limit` bytes is refused before a byte is read; any other input
/// once it passes `limit`.
class InputFile {
public:
    InputFile(const std::string& path, std::uint64_t limit);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// The input as messages name it: its path, or "the input" for stdin.
    const std::string& name() const { return name_; }
    /// The size of a regular file; none for a pipe or a terminal.
    std::optional<std::uint64_t> knownSize() const { return knownSize_; }
    /// Reads up to `room` bytes to `into`: fewer only at the end, 0 there.
    std::size_t read(unsigned char* into, std::size_t room);

private:
    // Refuses what is no input and what is known to be too large.
    void inspect(const std::string& path);

    int descriptor_ = -1;
    bool owned_ = false;
    std::string name_;
    std::uint64_t limit_;
    std::uint64_t taken_ = 0;
    std::optional<std::uint64_t> knownSize_;
};

/// Up to `count` bytes from where `input` stands; fewer only at its end.
mw::ByteBuffer readSome(InputFile& input, std::size_t count);

/// The bytes a command works on: the file `path`, or stdin for "-", in a
/// buffer that wipes itself. Input larger than `limit` bytes is a ToolError.
mw::ByteBuffer readInput(const std::string& path, std::size_t limit);

/// Whether what writeOutput writes may be read by others than the user.
enum class Exposure { shared, secret };

/// Writes a command's result to the file `path`, or to stdout for "-".
/// Binary output is not written to a terminal: the ToolError names --out
/// instead. A secret goes to a file only its owner may read: a new one is
/// created with mode 0600, an existing regular file is set to 0600 before it
/// is emptied.
void writeOutput(const std::string& path, const mw::ByteBuffer& bytes, bool binary,
                 Exposure exposure = Exposure::shared);

/// Whether stdout / stderr is a terminal (a person watches, nothing is piped).
bool stdoutIsTerminal();
bool stderrIsTerminal();

} // namespace p15tool

#endif
