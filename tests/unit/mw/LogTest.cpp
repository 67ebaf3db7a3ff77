// P15_TRACE is read once per process: each case traces in a forked child of its own.
#include "mw/Log.hpp"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Engine {};

// A traced operation that calls a nested one, which fails.
void tracedWork() {
    mw::Log outer(typeid(Engine), "void Engine::sign()");
    outer.addParamOut("verified", true);
    outer.addParamOut("mode", "raw");
    try {
        mw::Log inner(typeid(int), "inner");
        inner.addParamOut("WT: ", std::string("250"));
        throw std::runtime_error("card removed");
    } catch (const std::runtime_error&) {
    }
}

// Runs tracedWork in a child with P15_TRACE set to `setting` (unset when
// null) and returns what the child wrote to stderr.
std::string runTraced(const char* setting) {
    const std::string errPath = ::testing::TempDir() + "p15-log-stderr-" + std::to_string(getpid());
    const pid_t child = fork();
    if (child == 0) {
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(err, STDERR_FILENO);
        if (setting != nullptr) {
            setenv("P15_TRACE", setting, 1);
        } else {
            unsetenv("P15_TRACE");
        }
        tracedWork();
        std::fflush(stderr);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::stringstream err;
    err << std::ifstream(errPath).rdbuf();
    std::remove(errPath.c_str());
    return err.str();
}

} // namespace

// Unset or empty: silent; a file that cannot be opened is reported and tracing stays off. A trace
// file is used end to end (PinTrace).
TEST(Log, WritesNestedEntriesWithTimesWhenAsked) {
    EXPECT_EQ(runTraced(nullptr), "");
    EXPECT_EQ(runTraced(""), "");
    const std::string unwritable = runTraced("/nonexistent-dir/trace.log");
    EXPECT_NE(unwritable.find("P15_TRACE: cannot open trace file /nonexistent-dir/trace.log"),
              std::string::npos)
        << unwritable;
    EXPECT_EQ(unwritable.find("Engine::sign"), std::string::npos) << unwritable;
    // Each elapsed time such as "(0.012 ms)" becomes "(T)"; any other form stays.
    EXPECT_EQ(
        std::regex_replace(runTraced("stderr"), std::regex(R"(\([0-9]+\.[0-9]{3} ms\))"), "(T)"),
        "p15 > void Engine::sign() [(anonymous namespace)::Engine]\n"
        "p15   > inner [int]\n"
        "p15   < inner (T) threw WT=250\n"
        "p15 < void Engine::sign() (T) verified=true mode=raw\n");
}
