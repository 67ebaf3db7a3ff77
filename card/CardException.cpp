#include "card/CardException.hpp"

#include <boost/core/demangle.hpp>

#include <algorithm>
#include <iterator>
#include <typeinfo>

namespace card {

namespace {

struct StatusTextRow {
    unsigned short sw;
    const char* text;
};

// Sorted by status word.
const StatusTextRow statusTexts[] = {
    {0x6281, "part of returned data may be corrupted"},
    {0x6282, "End of file or record reached before reading Ne bytes"},
    {0x6283, "Selected file deactivated"},
    {0x6284, "File control information not formatted according to ISO7816-4"},
    {0x6285, "Selected file in termination state"},
    {0x6286, "No input data available from a sensor on the card"},
    {0x6381, "File filled up by the last write"},
    {0x6400, "Execution error"},
    {0x6401, "Immediate response required by the card"},
    {0x6581, "Memory failure"},
    {0x6700, "Wrong Length"},
    {0x6881, "Logical channel not supported"},
    {0x6882, "Secure messaging not supported"},
    {0x6883, "Last command of the chain expected"},
    {0x6884, "Command chaining not supported"},
    {0x6981, "Command incompatible with file structure"},
    {0x6982, "Security status not satisfied"},
    {0x6983, "Authentication method blocked"},
    {0x6984, "Reference data not usable"},
    {0x6985, "Conditions of use not satisfied"},
    {0x6986, "Command not allowed (no current EF)"},
    {0x6987, "Expected secure messaging data objects missing"},
    {0x6988, "Incorrect secure messaging data objects"},
    {0x6A80, "Incorrect parameters in the command data field"},
    {0x6A81, "Function not supported"},
    {0x6A82, "File or application not found"},
    {0x6A83, "Record not found"},
    {0x6A84, "Not enough memory space in the file"},
    {0x6A85, "NC inconsistent with TLV structure"},
    {0x6A86, "Incorrect parameters P1-P2"},
    {0x6A87, "NC inconsistent with parameters P1-P2"},
    {0x6A88,
     "Referenced data or reference data not found (exact meaning depending on the command)"},
    {0x6A89, "File already exists"},
    {0x6A8A, "DF name already exists"},
    {0x6B00, "Wrong Parameters P1-P2"},
    {0x6D00, "Instruction code not supported or invalid"},
    {0x6E00, "Class not supported"},
    {0x6F00, "No precise diagnosis"},
};

} // namespace

const char* statusText(unsigned short sw) {
    const auto row =
        std::lower_bound(std::begin(statusTexts), std::end(statusTexts), sw,
                         [](const StatusTextRow& r, unsigned short value) { return r.sw < value; });
    return row != std::end(statusTexts) && row->sw == sw ? row->text : "unknown error";
}

std::string to_string(const StatusCode& info) {
    return "[" + boost::core::demangle(typeid(tag_status_code*).name()) +
           "] = " + statusText(info.value()) + "\n";
}

} // namespace card
