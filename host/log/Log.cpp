#include "mw/Log.hpp"

#include "host/log/TraceWriter.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <boost/core/demangle.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace mw {

namespace {

// Nesting depth of the open scopes on this thread.
thread_local int openScopes = 0;

std::string indentation(int depth) {
    return std::string(2 * static_cast<std::size_t>(depth), ' ');
}

std::string milliseconds(std::chrono::steady_clock::duration elapsed) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms",
                  std::chrono::duration<double, std::milli>(elapsed).count());
    return text;
}

} // namespace

// An open trace entry; exists only while tracing is on.
class Log::Scope {
public:
    Scope(log::TraceWriter& writer, const std::type_info& type, std::string operation)
        : writer_(writer)
        , operation_(std::move(operation))
        , depth_(openScopes++)
        , exceptionsAtEntry_(std::uncaught_exceptions())
        , start_(std::chrono::steady_clock::now()) {
        writer_.writeLine(indentation(depth_) + "> " + operation_ + " [" +
                          boost::core::demangle(type.name()) + "]");
    }

    ~Scope() {
        --openScopes;
        try {
            writer_.writeLine(exitLine());
        } catch (...) {
            // A trace line that cannot be built is dropped; tracing never
            // changes the outcome of the traced operation.
        }
    }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    void add(const std::string& name, std::string value) {
        outputs_.emplace_back(boost::algorithm::trim_right_copy_if(name, boost::is_any_of(": ")),
                              std::move(value));
    }

private:
    std::string exitLine() const {
        std::string line = indentation(depth_) + "< " + operation_ + " (" +
                           milliseconds(std::chrono::steady_clock::now() - start_) + ")";
        if (std::uncaught_exceptions() > exceptionsAtEntry_) {
            line += " threw";
        }
        for (const auto& [name, value] : outputs_) {
            line += " " + name + "=" + value;
        }
        return line;
    }

    log::TraceWriter& writer_;
    std::string operation_;
    int depth_;
    int exceptionsAtEntry_;
    std::chrono::steady_clock::time_point start_;
    std::vector<std::pair<std::string, std::string>> outputs_;
};

Log::Log(const std::type_info& type, const char* operation)
    : scope_(open(type, operation)) {}

Log::Log(const std::type_info& type, const std::string& operation)
    : Log(type, operation.c_str()) {}

std::unique_ptr<Log::Scope> Log::open(const std::type_info& type, const char* operation) {
    log::TraceWriter* writer = log::TraceWriter::instance();
    return writer != nullptr ? std::make_unique<Scope>(*writer, type, operation) : nullptr;
}

Log::~Log() = default;

void Log::addParamOut(const std::string& name, const std::string& value) {
    if (scope_) {
        scope_->add(name, value);
    }
}

void Log::addParamOut(const std::string& name, const char* value) {
    if (scope_) {
        scope_->add(name, value);
    }
}

void Log::addParamOut(const std::string& name, bool value) {
    addParamOut(name, value ? "true" : "false");
}

} // namespace mw
