#include "tools/p15tool/Progress.hpp"

#include "tools/p15tool/Streams.hpp"

#include <iostream>

namespace p15tool {

Progress::Progress(const std::string& what)
    : shown_(stderrIsTerminal()) {
    if (shown_) {
        std::cerr << what << " ..." << std::flush;
    }
}

Progress::~Progress() {
    finish("failed");
}

void Progress::done() {
    finish("done");
}

void Progress::finish(const char* how) {
    if (shown_ && !finished_) {
        std::cerr << " " << how << "\n" << std::flush;
    }
    finished_ = true;
}

} // namespace p15tool
