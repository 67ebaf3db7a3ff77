#ifndef TESTS_E2E_P15TOOL_TOOLPROCESS_HPP
#define TESTS_E2E_P15TOOL_TOOLPROCESS_HPP

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace p15tool::test {

using Environment = std::vector<std::pair<std::string, std::string>>;

struct ToolResult {
    int exitCode = -1;
    std::string out;
    std::string err;
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

// Runs the built p15tool as a user does, in a session of its own without a
// controlling terminal, stdin from /dev/null, `environment` added to ours.
ToolResult runTool(const std::vector<std::string>& arguments, const Environment& environment = {});

// A fresh directory, removed with everything in it at the end of its scope.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

} // namespace p15tool::test

#endif
