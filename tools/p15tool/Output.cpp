#include "tools/p15tool/Output.hpp"

#include <algorithm>
#include <ostream>

namespace p15tool {

namespace {

constexpr int indentStep = 2;

// Empty lists and objects print as "-" on their key's line.
bool isScalar(const Json& value) {
    return !value.is_structured() || value.empty();
}

bool isScalarList(const Json& value) {
    return value.is_array() && std::all_of(value.begin(), value.end(), isScalar);
}

std::string scalarText(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (value.is_structured()) {
        return "-";
    }
    return value.dump();
}

std::string listText(const Json& list) {
    std::string text;
    for (const Json& item : list) {
        text += (text.empty() ? "" : ", ") + scalarText(item);
    }
    return text;
}

void printObject(std::ostream& out, const Json& object, int indent);

void printList(std::ostream& out, const Json& list, int indent) {
    for (const Json& item : list) {
        if (item.is_object()) {
            out << std::string(indent, ' ') << "-\n";
            printObject(out, item, indent + indentStep);
        } else {
            out << std::string(indent, ' ') << "- " << scalarText(item) << "\n";
        }
    }
}

void printObject(std::ostream& out, const Json& object, int indent) {
    std::size_t width = 0;
    for (const auto& [key, value] : object.items()) {
        if (isScalar(value) || isScalarList(value)) {
            width = std::max(width, key.size());
        }
    }
    const std::string pad(indent, ' ');
    for (const auto& [key, value] : object.items()) {
        if (isScalar(value) || isScalarList(value)) {
            const std::string text = isScalar(value) ? scalarText(value) : listText(value);
            out << pad << key << std::string(width - key.size() + 2, ' ') << text << "\n";
        } else {
            out << pad << key << ":\n";
            if (value.is_object()) {
                printObject(out, value, indent + indentStep);
            } else {
                printList(out, value, indent + indentStep);
            }
        }
    }
}

} // namespace

void printResult(std::ostream& out, const Json& document, bool json) {
    if (json) {
        out << document.dump(2) << "\n";
    } else if (document.is_object()) {
        printObject(out, document, 0);
    } else {
        printList(out, document, 0);
    }
}

} // namespace p15tool
