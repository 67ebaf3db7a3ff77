#include "tools/p15tool/DirectoryFile.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/EntryLayout.hpp"
#include "app/pkcs15/oss/Codec.hpp"
#include "app/pkcs15/oss/DerReader.hpp"
#include "tools/p15tool/EntryJson.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace p15tool {

namespace {

// Far more than any directory file (at most 64 KiB), far less than harm.
constexpr std::size_t maxDumpSize = 1 << 20;

struct KindName {
    DirectoryKind kind;
    const char* name;
};

// In the order a file name is matched: "aodf" and "dodf" before "odf".
const KindName kindNames[] = {
    {DirectoryKind::aodf, "aodf"},   {DirectoryKind::prkdf, "prkdf"},
    {DirectoryKind::pukdf, "pukdf"}, {DirectoryKind::dodf, "dodf"},
    {DirectoryKind::cdf, "cdf"},     {DirectoryKind::tokeninfo, "tokeninfo"},
    {DirectoryKind::odf, "odf"},     {DirectoryKind::dir, "dir"},
};

// Binary DER is full of control bytes (tags and lengths below 0x20); a hex
// dump has none but line ends, whatever its comments are written in.
bool isHexText(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](unsigned char c) {
        return (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
    });
}

Bytes parseHex(const std::string& text, const std::string& path) {
    Bytes bytes;
    int line = 1;
    int pending = -1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '#') {
            i = std::min(text.find('\n', i), text.size()) - 1;
        } else if (c == '\n') {
            ++line;
        } else if (std::isxdigit(c)) {
            const int value = std::isdigit(c) ? c - '0' : std::toupper(c) - 'A' + 10;
            if (pending < 0) {
                pending = value;
            } else {
                bytes.push_back(static_cast<std::uint8_t>(pending << 4 | value));
                pending = -1;
            }
        } else if (!std::isspace(c)) {
            const std::string shown =
                c < 0x80 ? "'" + std::string(1, static_cast<char>(c)) + "'" : "byte " + hex({c});
            throw ToolError(ExitCode::failure, path + " line " + std::to_string(line) + ": " +
                                                   shown + " is not a hex digit");
        }
    }
    if (pending >= 0) {
        throw ToolError(ExitCode::failure, path + ": odd number of hex digits");
    }
    return bytes;
}

bool isPadding(std::uint8_t byte) {
    return byte == 0x00 || byte == 0xFF;
}

template <class Entry>
std::size_t appendEntry(const std::uint8_t* data, std::size_t size, Json& entries) {
    Entry entry;
    const std::size_t used = app::pkcs15::oss::decode(data, size, entry);
    entries.back().update(entryJson(entry));
    return used;
}

std::size_t decodeEntry(DirectoryKind kind, const std::uint8_t* data, std::size_t size,
                        Json& entries) {
    namespace oss = app::pkcs15::oss;
    switch (kind) {
    case DirectoryKind::odf:
        return appendEntry<oss::PKCS15Objects>(data, size, entries);
    case DirectoryKind::aodf:
        return appendEntry<oss::AuthenticationType>(data, size, entries);
    case DirectoryKind::prkdf:
        return appendEntry<oss::PrivateKeyType>(data, size, entries);
    case DirectoryKind::pukdf:
        return appendEntry<oss::PublicKeyType>(data, size, entries);
    case DirectoryKind::cdf:
        return appendEntry<oss::CertificateType>(data, size, entries);
    case DirectoryKind::dodf:
        return appendEntry<oss::DataType>(data, size, entries);
    case DirectoryKind::tokeninfo:
        return appendEntry<oss::TokenInfo>(data, size, entries);
    case DirectoryKind::dir:
        return appendEntry<oss::DIRRecord>(data, size, entries);
    }
    return size;
}

[[noreturn]] void rethrowAt(std::size_t offset) {
    try {
        throw;
    } catch (app::InvalidDataException& error) {
        const unsigned int* inner = boost::get_error_info<app::ErrorData>(error);
        error << app::ErrorData(static_cast<unsigned int>(offset + (inner ? *inner : 0)));
        throw;
    }
}

} // namespace

const char* kindName(DirectoryKind kind) {
    for (const KindName& entry : kindNames) {
        if (entry.kind == kind) {
            return entry.name;
        }
    }
    return "";
}

std::optional<DirectoryKind> kindFromName(const std::string& name) {
    std::string base = name.substr(name.rfind('/') == std::string::npos ? 0 : name.rfind('/') + 1);
    std::transform(base.begin(), base.end(), base.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const KindName& entry : kindNames) {
        if (base.find(entry.name) != std::string::npos) {
            return entry.kind;
        }
    }
    return std::nullopt;
}

std::optional<DirectoryKind> kindFromContent(const Bytes& content) {
    if (content.empty()) {
        return std::nullopt;
    }
    const std::uint8_t first = content[0];
    if (first == 0x61) {
        return DirectoryKind::dir;
    }
    if (first >= 0xA0 && first <= 0xA8) {
        return DirectoryKind::odf;
    }
    // TokenInfo: a SEQUENCE whose first component is the version INTEGER.
    const std::size_t lengthOctets =
        content.size() > 1 && content[1] > 0x80 ? content[1] - 0x80 : 0;
    const std::size_t firstComponent = 2 + lengthOctets;
    if (first == 0x30 && firstComponent < content.size() && content[firstComponent] == 0x02) {
        return DirectoryKind::tokeninfo;
    }
    return std::nullopt;
}

Bytes readDump(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw ToolError(ExitCode::notFound, "cannot read " + path + ": " + std::strerror(errno));
    }
    std::string content(maxDumpSize + 1, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (content.size() > maxDumpSize) {
        throw ToolError(ExitCode::failure, path + " is larger than 1 MiB: not a directory file");
    }
    if (isHexText(content)) {
        return parseHex(content, path);
    }
    return Bytes(content.begin(), content.end());
}

namespace {

// Where an entry was removed with entries after it: skipped, its length shown.
std::size_t holeLength(const std::uint8_t* data, std::size_t size, Json& entries) {
    const std::size_t length = app::pkcs15::oss::DerReader(data, size).next().totalSize;
    entries.back()["hole"] = length;
    return length;
}

} // namespace

Json decodeDirectoryFile(DirectoryKind kind, const Bytes& content) {
    Json entries = Json::array();
    std::size_t offset = 0;
    while (offset < content.size() && !isPadding(content[offset])) {
        entries.push_back(Json{{"offset", offset}});
        try {
            if (app::pkcs15::fs::EntryLayout::isHole(content[offset])) {
                offset += holeLength(content.data() + offset, content.size() - offset, entries);
                continue;
            }
            offset += decodeEntry(kind, content.data() + offset, content.size() - offset, entries);
        } catch (const app::InvalidDataException&) {
            rethrowAt(offset);
        }
    }
    const auto junk = std::find_if_not(content.begin() + offset, content.end(), isPadding);
    if (junk != content.end()) {
        APP_THROW_DATA(app::InvalidDataException, "data after the padding", junk - content.begin());
    }
    return Json{{"entries", entries}, {"padding", content.size() - offset}};
}

} // namespace p15tool
