#include "host/CardStatus.hpp"

#include "card/CardException.hpp"

#include <cstring>

namespace host {

namespace {

// The commands a rule can be about, by the card layer's names of them.
enum class Commands { Any, Pin, Decipher, Sign };

bool named(const char* command, const char* name) {
    return command && std::strcmp(command, name) == 0;
}

bool isOneOf(Commands commands, const char* command) {
    switch (commands) {
    case Commands::Pin:
        return named(command, "Verify") || named(command, "Change Reference Data") ||
               named(command, "Reset Retry Counter");
    case Commands::Decipher:
        return named(command, "Decipher");
    case Commands::Sign:
        return named(command, "Compute Digital Signature");
    case Commands::Any:
        break;
    }
    return true;
}

struct StatusRule {
    Commands commands;
    unsigned short sw;
    unsigned short mask; // the bits of `sw` that must match
    CardFault fault;
    const char* text;
};

// The first rule that matches wins; a status word no rule names is Other.
constexpr StatusRule statusRules[] = {
    {Commands::Pin, 0x63C0, 0xFFF0, CardFault::WrongPin, "wrong PIN"},
    {Commands::Pin, 0x6300, 0xFFFF, CardFault::WrongPin, "wrong PIN"},
    {Commands::Pin, 0x6983, 0xFFFF, CardFault::PinBlocked, "PIN blocked"},
    {Commands::Pin, 0x6984, 0xFFFF, CardFault::PinBlocked, "PIN blocked"},
    {Commands::Decipher, 0x6A80, 0xFFFF, CardFault::BadCryptogram, "invalid cryptogram"},
    {Commands::Sign, 0x6A80, 0xFFFF, CardFault::DataTooLong, "data too long for the key"},
    {Commands::Any, 0x6982, 0xFFFF, CardFault::NotAuthenticated, "security status not satisfied"},
    {Commands::Any, 0x6984, 0xFFFF, CardFault::NotUsable, "reference data not usable"},
    {Commands::Any, 0x6A84, 0xFFFF, CardFault::NoMemory, "not enough memory space in the file"},
};

} // namespace

CardStatus cardStatusOf(const char* command, unsigned short sw) {
    for (const StatusRule& rule : statusRules) {
        if ((sw & rule.mask) == rule.sw && isOneOf(rule.commands, command)) {
            const bool counted = rule.fault == CardFault::WrongPin && rule.mask == 0xFFF0;
            return {rule.fault, counted ? sw & 0x0F : -1, rule.text};
        }
    }
    return {CardFault::Other, -1, card::statusText(sw)};
}

} // namespace host
