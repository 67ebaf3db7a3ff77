#include "tools/p15tool/Choice.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>

namespace p15tool {

void addObjectChoice(CLI::App& command, ObjectChoice& choice, const char* kind) {
    auto* label =
        command.add_option("--label", choice.label, std::string("the ") + kind + " labelled L")
            ->type_name("L");
    command
        .add_option_function<std::string>(
            "--id",
            [&choice](const std::string& id) {
                std::string upper(id);
                std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
                choice.id = upper;
            },
            std::string("the ") + kind + " with this identifier (hex, as list shows it)")
        ->type_name("HEX")
        ->excludes(label);
}

} // namespace p15tool
