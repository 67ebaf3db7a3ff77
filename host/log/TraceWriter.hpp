#ifndef HOST_LOG_TRACEWRITER_HPP
#define HOST_LOG_TRACEWRITER_HPP

#include <cstdio>
#include <mutex>
#include <string>

namespace mw::log {

// Destination of trace lines, chosen once per process (and once per plugin
// library, which carries its own copy) from the environment variable
// P15_TRACE: unset or empty = off, "stderr", or a file path. Files are
// appended to, so a host and its plugin can share one file.
class TraceWriter {
public:
    // The writer, or null while tracing is off.
    static TraceWriter* instance();

    ~TraceWriter();
    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    // Writes one line and flushes it, so a crash loses no trace.
    void writeLine(const std::string& line);

private:
    explicit TraceWriter(const char* setting);
    bool enabled() const { return out_ != nullptr; }

    std::FILE* out_ = nullptr;
    bool ownsFile_ = false;
    std::mutex mutex_;
};

} // namespace mw::log

#endif
