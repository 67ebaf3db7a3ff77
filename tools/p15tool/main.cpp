// p15tool: the command-line host of the PKCS#15 plugin. It loads the plugin
// as any host does and drives a virtual card image or a card in a PC/SC
// reader; docs/p15tool.md describes its commands, output and exit codes.
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>

#include <iostream>

namespace {

void addGlobalOptions(CLI::App& program, p15tool::GlobalOptions& options) {
    program
        .add_option("--card", options.cardImage,
                    "virtual card image (default: the user's own, created on first use)")
        ->type_name("IMAGE");
    program
        .add_option_function<std::string>(
            "--reader", [&options](const std::string& name) { options.reader = name; },
            "card in this PC/SC reader; without a name, the one reader holding a card")
        ->type_name("[NAME]")
        ->expected(0, 1)
        ->default_str("")
        ->excludes("--card");
    program.add_option("--conf", options.confFile, "the plugin's \"plugin.conf\"")
        ->type_name("FILE");
    program.add_flag("--json", options.json, "print results as JSON");
}

// "p15tool key export": the program and the subcommands parsed so far, for
// the one-line hint of a usage error.
std::string commandPath(const CLI::App& program) {
    std::string path = program.get_name();
    for (const CLI::App* command = &program; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        path += " " + command->get_name();
    }
    return path;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App program{"p15tool: PKCS#15 smart cards from the command line", "p15tool"};
    program.require_subcommand(1);
    program.fallthrough();
    p15tool::GlobalOptions options;
    addGlobalOptions(program, options);
    p15tool::addCardCommands(program, options);
    p15tool::addListCommand(program, options);
    p15tool::addKeyCommands(program, options);
    p15tool::addEnrolCommands(program, options);
    p15tool::addCryptoCommands(program, options);
    p15tool::addValueCommands(program, options);
    p15tool::addPinCommands(program, options);
    p15tool::addDecodeCommand(program, options);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& done) {
        return program.exit(done);
    } catch (const CLI::ParseError& error) {
        std::cerr << "p15tool: " << error.what() << "; see " << commandPath(program) << " --help\n";
        return static_cast<int>(p15tool::ExitCode::usage);
    } catch (const std::exception& error) {
        const p15tool::Failure failure = p15tool::describeFailure(error);
        std::cerr << "p15tool: " << failure.message << "\n";
        return static_cast<int>(failure.code);
    }
    return 0;
}
