// p15tool decode on any dump: read as binary or hex with comments, its kind
// guessed from the content, decoded as every kind of directory file and
// printed as JSON and as text. Only the tool's own errors and the codec's
// InvalidDataException may refuse it.
#include "app/ApplicationException.hpp"
#include "tools/p15tool/DirectoryFile.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using p15tool::DirectoryKind;

// The dump as `decode` reads it: from a file.
p15tool::Bytes readAsDump(const std::uint8_t* data, std::size_t size) {
    const int fd = memfd_create("dump", 0);
    if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    try {
        p15tool::Bytes dump = p15tool::readDump("/proc/self/fd/" + std::to_string(fd));
        close(fd);
        return dump;
    } catch (...) {
        close(fd);
        throw;
    }
}

void decodeAndPrint(DirectoryKind kind, const p15tool::Bytes& content) {
    try {
        const p15tool::Json document = p15tool::decodeDirectoryFile(kind, content);
        std::ostringstream out;
        p15tool::printResult(out, document, true);
        p15tool::printResult(out, document, false);
    } catch (const app::InvalidDataException&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    p15tool::Bytes content;
    try {
        content = readAsDump(data, size);
    } catch (const p15tool::ToolError&) {
        return 0;
    }
    p15tool::kindFromContent(content);
    for (DirectoryKind kind :
         {DirectoryKind::odf, DirectoryKind::aodf, DirectoryKind::prkdf, DirectoryKind::pukdf,
          DirectoryKind::cdf, DirectoryKind::dodf, DirectoryKind::tokeninfo, DirectoryKind::dir}) {
        decodeAndPrint(kind, content);
    }
    return 0;
}
