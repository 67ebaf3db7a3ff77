#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace p15tool::test {

namespace {

// The terminal side of a pseudo-terminal: what the tool wrote, until `text`.
std::string readUntil(int terminal, const std::string& text) {
    std::string seen;
    char buffer[256];
    pollfd ready{terminal, POLLIN, 0};
    for (ssize_t got = 0; seen.find(text) == std::string::npos; seen.append(buffer, got)) {
        if (::poll(&ready, 1, 10000) <= 0 || (got = ::read(terminal, buffer, sizeof buffer)) <= 0) {
            break;
        }
    }
    return seen;
}

} // namespace

ToolResult runTool(const Arguments& arguments, const Environment& environment,
                   const std::string& input, const Typed& typed) {
    const TemporaryDirectory capture;
    const std::string outPath = capture.file("out"), errPath = capture.file("err");
    int terminal = -1;
    const pid_t child = typed.empty() ? ::fork() : ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        if (typed.empty()) {
            ::setsid();
            ::dup2(::open(input.c_str(), O_RDONLY), 0);
            ::dup2(::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
            ::dup2(::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        }
        for (const auto& [name, value] : environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char*> argv{const_cast<char*>(P15TOOL_PATH)};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        ::execv(P15TOOL_PATH, argv.data());
        ::_exit(127);
    }
    std::string screen;
    for (const auto& [prompt, line] : typed) {
        screen += readUntil(terminal, prompt);
        const std::string entered = line + "\n";
        EXPECT_EQ(::write(terminal, entered.data(), entered.size()), ssize_t(entered.size()));
    }
    if (terminal >= 0) {
        screen += readUntil(terminal, "\x04"); // everything, until the tool closes the terminal
        ::close(terminal);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            typed.empty() ? readFile(outPath) : screen, readFile(errPath)};
}

TemporaryDirectory::TemporaryDirectory()
    : path((std::filesystem::temp_directory_path() / "p15tool-test-XXXXXX").string()) {
    if (!::mkdtemp(path.data())) {
        throw std::runtime_error("mkdtemp failed");
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

::testing::AssertionResult exited(const ToolResult& result, int code, const std::string& says) {
    const bool oneLine =
        result.err.rfind("p15tool: ", 0) == 0 && result.err.find('\n') == result.err.size() - 1;
    if (result.exitCode == code && result.err.find(says) != std::string::npos &&
        (code == 0 || oneLine)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "exit status " << result.exitCode << ", stderr:\n"
                                         << result.err;
}

void expectEach(const std::vector<Expected>& rows,
                const std::function<ToolResult(const Arguments&)>& run) {
    for (const auto& [arguments, code, says] : rows) {
        SCOPED_TRACE(says + " / " + (arguments.empty() ? "" : arguments.back()));
        EXPECT_TRUE(exited(run(arguments), code, says));
    }
}

void editCardFile(const std::string& image, std::uint16_t fid,
                  const std::function<void(vcard::CardFile&)>& edit) {
    vcard::CardState state = vcard::CardImage::load(image);
    const std::uint8_t high = fid >> 8, low = fid & 0xFF;
    edit(state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, high, low}, true));
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
}

std::string CardFolder::shell(const std::string& command) const {
    const std::string line = "cd " + directory.path + " && (" + command + ") > shell.out 2>&1";
    const int status = std::system(line.c_str());
    const std::string out = readFile(directory.file("shell.out"));
    EXPECT_EQ(status, 0) << line << "\n" << out;
    return out;
}

vcard::Pin CardFolder::storedPin(std::uint8_t reference) const {
    return vcard::CardImage::load(image).pins.pins().at(reference);
}

ToolResult CardFolder::tool(Arguments arguments, const Environment& extra, const std::string& input,
                            const Typed& typed) const {
    arguments.insert(arguments.begin(), {"--card", image});
    Environment all = environment;
    all.insert(all.end(), extra.begin(), extra.end());
    return runTool(arguments, all, input, typed);
}

ToolResult CardFolder::expect(const Arguments& arguments, int code, const std::string& says,
                              const Environment& extra, const std::string& input) const {
    ToolResult result = tool(arguments, extra, input);
    EXPECT_TRUE(exited(result, code, says)) << ::testing::PrintToString(arguments);
    return result;
}

void CardFolder::expectEach(const std::vector<Expected>& rows, const Environment& extra) const {
    test::expectEach(rows, [&](const Arguments& arguments) { return tool(arguments, extra); });
}

ToolResult CardFolder::init(const Environment& changed, Arguments extra) const {
    extra.insert(extra.begin(),
                 {"init", "--pin-env", "USER_PIN", "--puk-env", "PUK", "--so-pin-env", "SO_PIN"});
    return tool(extra, changed);
}

} // namespace p15tool::test
