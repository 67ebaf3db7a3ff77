#ifndef TOOLS_PININPUT_PININPUT_HPP
#define TOOLS_PININPUT_PININPUT_HPP

#include "mw/ByteBuffer.hpp"

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace pininput {

// Reading a PIN for a command-line tool, shared by p15tool and p15-vcard.

// A PIN that could not be read: what went wrong and which options help.
class PinInputError : public std::runtime_error {
public:
    enum class Kind {
        usage,    // no source given and no terminal, a PIN too long, entries that differ
        notFound, // the file named cannot be read
        failure,  // the terminal cannot be written
    };
    PinInputError(Kind kind, const std::string& message)
        : std::runtime_error(message)
        , kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

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
// Without a source and without a terminal, a PinInputError says which
// options give it.
mw::ByteBuffer read(const PinSource& source, bool isNew);

} // namespace pininput

#endif
