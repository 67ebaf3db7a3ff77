#ifndef TOOLS_P15TOOL_STREAMS_HPP
#define TOOLS_P15TOOL_STREAMS_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace p15tool {

// The bytes a command works on: the file `path`, or stdin for "-". Input
// larger than `limit` bytes is a ToolError.
mw::ByteBuffer readInput(const std::string& path, std::size_t limit);

// Writes a command's result to the file `path`, or to stdout for "-". Binary
// output is not written to a terminal: the ToolError names --out instead.
void writeOutput(const std::string& path, const mw::ByteBuffer& bytes, bool binary);

// Whether stdout / stderr is a terminal (a person watches, nothing is piped).
bool stdoutIsTerminal();
bool stderrIsTerminal();

} // namespace p15tool

#endif
