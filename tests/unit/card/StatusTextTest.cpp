#include "card/CardException.hpp"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

TEST(StatusText, EveryListedStatusWordHasItsText) {
    const std::vector<std::pair<unsigned short, std::string>> rows = {
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
    for (const auto& [sw, text] : rows) {
        EXPECT_EQ(card::statusText(sw), text) << std::hex << sw;
    }
}

TEST(StatusText, OnlyExactValuesMap) {
    for (unsigned short sw : {0x6A8B, 0x6A8F, 0x9000, 0x6100, 0x61FF, 0x63C2, 0x6C10, 0x6280,
                              0x6A00, 0x6F01, 0x0000, 0xFFFF}) {
        EXPECT_STREQ(card::statusText(sw), "unknown error") << std::hex << sw;
    }
}
