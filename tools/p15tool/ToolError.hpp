#ifndef TOOLS_P15TOOL_TOOLERROR_HPP
#define TOOLS_P15TOOL_TOOLERROR_HPP

#include <exception>
#include <stdexcept>
#include <string>

namespace p15tool {

// The process exit status; docs/p15tool.md lists them for scripts.
enum class ExitCode : int {
    success = 0,
    failure = 1,  // bad input file, invalid data, anything not listed below
    usage = 2,    // the command line is wrong
    card = 3,     // no card, no reader, a card or application error
    pin = 4,      // wrong or blocked PIN
    notFound = 5, // the object, file or image asked for does not exist
};

// A failure the tool itself detects: what failed and what to do next, with
// the exit status it ends the process with.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& message)
        : std::runtime_error(message)
        , code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

struct Failure {
    ExitCode code;
    std::string message; // one line, without the program name
};

// What a refused PIN is called in messages, and what to do once it is
// blocked.
struct RefusedSecret {
    std::string name = "PIN"; // the value presented: "User PIN", "PUK"
    std::string whenBlocked = "unblock it with the PUK (p15tool pin unblock)";
    std::string newName = "new PIN"; // the value a change or unblock sets
};

// The exit status and the one-line message for any exception a command lets
// escape, what it means first: a refused PIN (wrong or blocked) is named as
// `secret` says, with the tries left; a PIN value the PIN cannot take says
// what it takes (exit status usage: nothing reached the card); another card
// error says what went wrong, then the command and status word.
Failure describeFailure(const std::exception& error, const RefusedSecret& secret = {});

} // namespace p15tool

#endif
