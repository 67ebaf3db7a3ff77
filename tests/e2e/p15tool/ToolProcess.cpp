#include "ToolProcess.hpp"
#include "vcard/CardImage.hpp"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace p15tool::test {

namespace {

[[noreturn]] void execTool(const std::vector<std::string>& arguments,
                           const Environment& environment) {
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

} // namespace

ToolResult runTool(const std::vector<std::string>& arguments, const Environment& environment,
                   const std::string& input) {
    const TemporaryDirectory capture;
    const std::string outPath = capture.file("out"), errPath = capture.file("err");
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        ::setsid();
        const int in = ::open(input.c_str(), O_RDONLY);
        const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(in, 0), ::dup2(out, 1), ::dup2(err, 2);
        execTool(arguments, environment);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ToolResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "p15tool-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
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
    if (result.exitCode == code && result.err.find(says) != std::string::npos) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "exit status " << result.exitCode << ", stderr:\n"
                                         << result.err;
}

::testing::AssertionResult contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "not in:\n" << text;
}

void editCardFile(const std::string& image, std::uint16_t fid,
                  const std::function<void(vcard::Bytes&)>& edit) {
    vcard::CardState state = vcard::CardImage::load(image);
    const std::uint8_t high = fid >> 8, low = fid & 0xFF;
    edit(state.files.selectByPath({0x3F, 0x00, 0x50, 0x15, high, low}, true).content);
    vcard::CardImage::store(image, vcard::CardImage::serialise(state));
}

void InitialisedCard::SetUp() {
    const ToolResult init =
        tool({"init", "--pin-env", "USER_PIN", "--puk-env", "PUK", "--so-pin-env", "SO_PIN",
              "--profile", vcard::profileName(profile())});
    ASSERT_EQ(init.exitCode, 0) << init.err;
}

ToolResult InitialisedCard::tool(std::vector<std::string> arguments, const Environment& extra,
                                 const std::string& input) const {
    arguments.insert(arguments.begin(), {"--card", image});
    Environment all = environment;
    all.insert(all.end(), extra.begin(), extra.end());
    return runTool(arguments, all, input);
}

std::string openssl(const TemporaryDirectory& directory, const std::string& arguments) {
    const std::string command =
        "cd " + directory.path() + " && openssl " + arguments + " > openssl.out 2>&1";
    const int status = std::system(command.c_str());
    const std::string out = readFile(directory.file("openssl.out"));
    EXPECT_EQ(status, 0) << command << "\n" << out;
    return out;
}

} // namespace p15tool::test
