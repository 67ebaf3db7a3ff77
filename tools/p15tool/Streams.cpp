#include "tools/p15tool/Streams.hpp"

#include "tools/p15tool/ToolError.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace p15tool {

namespace {

void readAll(std::istream& in, mw::ByteBuffer& into, std::size_t limit, const std::string& name) {
    char chunk[4096];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        if (into.size() + static_cast<std::size_t>(in.gcount()) > limit) {
            throw ToolError(ExitCode::failure, name + " is larger than " + std::to_string(limit) +
                                                   " bytes, more than this command takes");
        }
        into.append(reinterpret_cast<const unsigned char*>(chunk),
                    static_cast<std::size_t>(in.gcount()));
    }
}

} // namespace

mw::ByteBuffer readInput(const std::string& path, std::size_t limit) {
    mw::ByteBuffer bytes;
    if (path == "-") {
        readAll(std::cin, bytes, limit, "the input");
        return bytes;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ToolError(ExitCode::notFound, "cannot read " + path + ": " + std::strerror(errno));
    }
    readAll(in, bytes, limit, path);
    return bytes;
}

void writeOutput(const std::string& path, const mw::ByteBuffer& bytes, bool binary) {
    if (path == "-") {
        if (binary && stdoutIsTerminal()) {
            throw ToolError(ExitCode::usage,
                            "the result is binary; write it to a file with --out FILE, or pipe it");
        }
        std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::streamsize>(bytes.size()));
        std::cout.flush();
        return;
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        throw ToolError(ExitCode::failure, "cannot write " + path + ": " + std::strerror(errno));
    }
}

bool stdoutIsTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool stderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace p15tool
