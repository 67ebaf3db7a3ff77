#ifndef TOOLS_P15TOOL_COMMANDS_HPP
#define TOOLS_P15TOOL_COMMANDS_HPP

namespace CLI {
class App;
}

namespace p15tool {

struct GlobalOptions;

// Each group adds its subcommands to the program; a subcommand's callback
// does the work once the whole command line is parsed and throws what fails.

// init, info, wipe, readers: the card itself.
void addCardCommands(CLI::App& program, const GlobalOptions& options);
// decode: directory-file dumps, offline.
void addDecodeCommand(CLI::App& program, const GlobalOptions& options);
// sign, verify, encrypt, decrypt, random: the engines.
void addCryptoCommands(CLI::App& program, const GlobalOptions& options);
// keygen, req, selfsign: making and enrolling keys.
void addEnrolCommands(CLI::App& program, const GlobalOptions& options);
// cert write|read|delete, data write|read|delete.
void addValueCommands(CLI::App& program, const GlobalOptions& options);
// key import|export|delete.
void addKeyCommands(CLI::App& program, const GlobalOptions& options);
// list and dump: the objects of the card's application.
void addListCommand(CLI::App& program, const GlobalOptions& options);
// pin status|verify|logout|change|unblock.
void addPinCommands(CLI::App& program, const GlobalOptions& options);

} // namespace p15tool

#endif
