#include "host/log/TraceWriter.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace mw::log {

TraceWriter* TraceWriter::instance() {
    static TraceWriter writer(std::getenv("P15_TRACE"));
    return writer.enabled() ? &writer : nullptr;
}

TraceWriter::TraceWriter(const char* setting) {
    if (setting == nullptr || *setting == '\0') {
        return;
    }
    if (std::strcmp(setting, "stderr") == 0) {
        out_ = stderr;
        return;
    }
    out_ = std::fopen(setting, "a");
    if (out_ == nullptr) {
        std::fprintf(stderr, "P15_TRACE: cannot open trace file %s: %s; tracing is off\n", setting,
                     std::strerror(errno));
        return;
    }
    ownsFile_ = true;
}

TraceWriter::~TraceWriter() {
    if (ownsFile_) {
        std::fclose(out_);
    }
}

void TraceWriter::writeLine(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::fprintf(out_, "p15 %s\n", line.c_str());
    std::fflush(out_);
}

} // namespace mw::log
