#ifndef HOST_APDUTRACE_HPP
#define HOST_APDUTRACE_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace card {
class Apdu;
}

namespace host {

/// Receives one line per command a transport carried.
using ApduTraceSink = void (*)(const std::string& line);

/// Installs the sink that every transport of this process reports its
/// commands to, or none (nullptr, the default: tracing then costs one
/// test per command). Set it before the first card is opened.
void setApduTrace(ApduTraceSink sink);

/// Whether a sink is installed.
bool apduTraceOn();

/// Reports `command` and the card's `answer` (null when none came) to the
/// sink. A line shows the command's name, its header, its data length and
/// Le, and the status word and answer length; never the data of either
/// way, which may carry a PIN, a key or a plaintext:
/// "VERIFY 00 20 00 81 [8 bytes hidden] -> 63C2".
void traceApdu(const card::Apdu& command, const mw::ByteBuffer* answer);

/// The line traceApdu gives the sink.
std::string apduTraceLine(const card::Apdu& command, const mw::ByteBuffer* answer);

} // namespace host

#endif
