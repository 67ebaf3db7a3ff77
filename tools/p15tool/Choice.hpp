#ifndef TOOLS_P15TOOL_CHOICE_HPP
#define TOOLS_P15TOOL_CHOICE_HPP

#include "mw/ByteBuffer.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Text.hpp"
#include "tools/p15tool/ToolError.hpp"

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace p15tool {

// Which object a command means: by label or by identifier (hex).
struct ObjectChoice {
    std::optional<std::string> label;
    std::optional<std::string> id;
    bool given() const { return label || id; }
};

// Adds --label L and --id HEX, which exclude each other.
void addObjectChoice(CLI::App& command, ObjectChoice& choice, const char* kind);

// The one object of `objects` that `choice` names (by label, or by the
// identifier `idOf` gives), or without a choice the only one. None is a
// ToolError (not found), several one (usage) that says how to choose; both
// name the object `kind` and the command that lists them.
template <class Object, class IdOf>
Object chooseObject(const std::vector<Object>& objects, const ObjectChoice& choice, IdOf idOf,
                    const std::string& kind) {
    std::vector<Object> chosen;
    for (const Object& object : objects) {
        const bool matches =
            choice.label ? object->getLabel() && displayText(*object->getLabel()) == *choice.label
            : choice.id  ? mw::toHex(idOf(*object)) == *choice.id
                         : true;
        if (matches) {
            chosen.push_back(object);
        }
    }
    const std::string which = choice.label ? " labelled \"" + *choice.label + "\""
                              : choice.id  ? " with id " + *choice.id
                                           : std::string();
    if (chosen.empty()) {
        throw ToolError(ExitCode::notFound,
                        "no " + kind + which + " on the card; list them with: p15tool list");
    }
    if (chosen.size() > 1) {
        throw ToolError(ExitCode::usage, std::to_string(chosen.size()) + " " + kind + "s" + which +
                                             " on the card; choose one with --id (see p15tool "
                                             "list)");
    }
    return chosen.front();
}

} // namespace p15tool

#endif
