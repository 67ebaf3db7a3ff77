#ifndef TOOLS_P15TOOL_OUTPUT_HPP
#define TOOLS_P15TOOL_OUTPUT_HPP

#include <nlohmann/json.hpp>

#include <iosfwd>

namespace p15tool {

// Members keep the order they were added in, so that the shape documented
// in docs/p15tool.md is also the order a reader sees.
using Json = nlohmann::ordered_json;

// Prints a command's result: the document itself with --json, otherwise the
// same content for a person: one "key  value" line per member, values of an
// object aligned, nested objects and lists indented.
void printResult(std::ostream& out, const Json& document, bool json);

} // namespace p15tool

#endif
