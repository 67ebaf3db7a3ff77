#ifndef TOOLS_P15TOOL_PROGRESS_HPP
#define TOOLS_P15TOOL_PROGRESS_HPP

#include <string>

namespace p15tool {

// A long operation shown on the terminal: "Generating a 2048-bit key ..."
// while it runs, "done" or "failed" once it ends. When stderr is not a
// terminal (a script, a pipe, a log) it prints nothing at all.
class Progress {
public:
    explicit Progress(const std::string& what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // The operation succeeded; without this, the destructor says it failed.
    void done();

private:
    void finish(const char* how);

    bool shown_;
    bool finished_ = false;
};

} // namespace p15tool

#endif
