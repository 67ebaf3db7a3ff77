// p15tool: the command-line host of the PKCS#15 plugin. It loads the plugin
// as any host does and drives a virtual card image or a card in a PC/SC
// reader; docs/p15tool.md describes its commands, output and exit codes.
#include "host/ApduTrace.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <vector>

namespace {

void printCardCommand(const std::string& line) {
    std::cerr << "card: " << line << '\n';
}

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
    program.add_flag_callback(
        "-v,--verbose", [] { host::setApduTrace(printCardCommand); },
        "show the card's commands and status words on stderr (never their data)");
    program.set_version_flag("--version", "p15tool " P15TOOL_VERSION);
}

// The number of single-character edits that turn `a` into `b`.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// `: did you mean "list"?` for a word close to one of `command`'s
// subcommands (at most two edits, and fewer than the word has letters).
std::string suggestion(const CLI::App& command, const std::string& word) {
    std::string nearest;
    std::size_t best = std::min<std::size_t>(3, word.size());
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) {
        const std::size_t distance = editDistance(word, sub->get_name());
        if (distance < best) {
            best = distance;
            nearest = sub->get_name();
        }
    }
    return nearest.empty() ? "" : ": did you mean \"" + nearest + "\"?";
}

// The last subcommand parsed: "export" of "p15tool key export".
const CLI::App& lastCommand(const CLI::App& program) {
    const CLI::App* command = &program;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
    }
    return *command;
}

// "p15tool key export": the program and the subcommands parsed so far, for
// the one-line hint of a usage error.
std::string commandPath(const CLI::App& program) {
    std::string path;
    for (const CLI::App* command = &lastCommand(program); command;
         command = command->get_parent()) {
        path = command->get_name() + (path.empty() ? "" : " " + path);
    }
    return path;
}

// The one line of a usage error. A word where a command was due names the
// nearest command: CLI11 itself says only that a subcommand is required, or
// that the word was not expected.
std::string usageError(const CLI::App& program, const CLI::ParseError& error) {
    const CLI::App& command = lastCommand(program);
    std::vector<std::string> words = command.remaining();
    const std::vector<std::string> passedUp = program.remaining();
    words.insert(words.end(), passedUp.begin(), passedUp.end());
    std::string message = error.what();
    for (const std::string& word : words) {
        if (const std::string nearest = suggestion(command, word); !nearest.empty()) {
            message = "unknown command \"" + word + "\"" + nearest;
            break;
        }
    }
    return message + "; see " + commandPath(program) + " --help";
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
        std::cerr << "p15tool: " << usageError(program, error) << "\n";
        return static_cast<int>(p15tool::ExitCode::usage);
    } catch (const std::exception& error) {
        const p15tool::Failure failure = p15tool::describeFailure(error);
        std::cerr << "p15tool: " << failure.message << "\n";
        return static_cast<int>(failure.code);
    }
    return 0;
}
