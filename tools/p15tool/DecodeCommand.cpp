// decode: the entries of a directory-file dump, offline, through the codec.
#include "app/ApplicationException.hpp"
#include "tools/p15tool/Commands.hpp"
#include "tools/p15tool/DirectoryFile.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <CLI/CLI.hpp>
#include <boost/exception/get_error_info.hpp>

#include <iostream>

namespace p15tool {

namespace {

struct DecodeOptions {
    std::optional<DirectoryKind> kind;
    std::string file;
};

DirectoryKind chooseKind(const DecodeOptions& options, const Bytes& content) {
    if (options.kind) {
        return *options.kind;
    }
    if (auto fromName = kindFromName(options.file)) {
        return *fromName;
    }
    if (auto fromContent = kindFromContent(content)) {
        return *fromContent;
    }
    throw ToolError(ExitCode::usage,
                    "cannot tell what kind of file " + options.file + " is; give it with --kind");
}

// "ASN.1: unexpected tag at byte 24", the byte counted from the file's start.
std::string invalidDataText(const app::InvalidDataException& error) {
    const char* const* text = boost::get_error_info<app::ErrorText>(error);
    const unsigned int* offset = boost::get_error_info<app::ErrorData>(error);
    std::string message = text ? *text : error.what();
    if (offset) {
        message += " at byte " + std::to_string(*offset);
    }
    return message;
}

void decode(const GlobalOptions& global, const DecodeOptions& options) {
    const Bytes content = readDump(options.file);
    const DirectoryKind kind = chooseKind(options, content);
    Json document{{"file", options.file}, {"kind", kindName(kind)}, {"size", content.size()}};
    try {
        document.update(decodeDirectoryFile(kind, content));
    } catch (const app::InvalidDataException& error) {
        throw ToolError(ExitCode::failure, options.file + " is not a valid " + kindName(kind) +
                                               ": " + invalidDataText(error));
    }
    printResult(std::cout, document, global.json);
}

} // namespace

void addDecodeCommand(CLI::App& program, const GlobalOptions& options) {
    auto decodeOptions = std::make_shared<DecodeOptions>();
    CLI::App* command = program.add_subcommand(
        "decode", "show the entries of a directory-file dump (binary, or hex with # comments)");
    std::map<std::string, DirectoryKind> kinds;
    for (DirectoryKind kind :
         {DirectoryKind::odf, DirectoryKind::aodf, DirectoryKind::prkdf, DirectoryKind::pukdf,
          DirectoryKind::cdf, DirectoryKind::dodf, DirectoryKind::tokeninfo, DirectoryKind::dir}) {
        kinds.emplace(kindName(kind), kind);
    }
    command
        ->add_option_function<std::string>(
            "--kind",
            [decodeOptions, kinds](const std::string& name) {
                decodeOptions->kind = kinds.at(name);
            },
            "what the file is (default: from its name or content)")
        ->transform(CLI::IsMember(kinds, CLI::ignore_case))
        ->type_name("KIND");
    command->add_option("file", decodeOptions->file, "the dump")->required()->type_name("FILE");
    command->callback([&options, decodeOptions] { decode(options, *decodeOptions); });
}

} // namespace p15tool
