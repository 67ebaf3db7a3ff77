#ifndef TOOLS_P15TOOL_PININPUT_HPP
#define TOOLS_P15TOOL_PININPUT_HPP

#include "mw/ByteBuffer.hpp"

#include <string>

namespace CLI {
class App;
}

namespace p15tool {

// Where one PIN comes from: an environment variable, the first line of a
// file, or else a prompt on the terminal that does not echo. A PIN is never
// a plain command-line argument: other users see those.
struct PinSource {
    std::string name;   // as the user knows it: "user PIN", "PUK", "SO PIN"
    std::string option; // the stem of its options: "pin" for --pin-env, --pin-file
    std::string environmentVariable;
    std::string file;
};

// Adds --<option>-env VAR and --<option>-file FILE for `source` to `command`.
void addPinOptions(CLI::App& command, PinSource& source);

// Reads the PIN from its source. A new PIN typed at the terminal is asked
// twice. The buffer wipes itself; the PIN is never printed or traced.
// Without a source and without a terminal, a ToolError says which options
// give it.
mw::ByteBuffer readPin(const PinSource& source, bool isNew);

} // namespace p15tool

#endif
