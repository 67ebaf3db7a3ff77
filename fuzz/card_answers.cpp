// The card layer and the application over a card whose answers the fuzzer
// spoils: which answers, and how (truncated, oversized, random bytes or
// status words, endless 61xx, none), comes from the input. SELECT and its
// FCP, READ BINARY with GET RESPONSE, the public-key template, GET DATA, the
// PIN commands and the directory files all parse what the input makes of
// them. Only card and application exceptions that say what went wrong may
// end an operation.
#include "HostileCard.hpp"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hostile::InputChoices choices(data, size);
    for (const std::string& error : hostile::runCase(choices).errors) {
        if (error.rfind("unclear: ", 0) == 0) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::abort();
        }
    }
    return 0;
}
