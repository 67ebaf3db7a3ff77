#include "pkcs11/CardFaults.hpp"

#include <cstring>
#include <iterator>

namespace pkcs11 {

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
};

// The first rule that matches wins; a status word no rule names is Other.
constexpr StatusRule statusRules[] = {
    {Commands::Pin, 0x63C0, 0xFFF0, CardFault::WrongPin},
    {Commands::Pin, 0x6983, 0xFFFF, CardFault::PinBlocked},
    {Commands::Pin, 0x6984, 0xFFFF, CardFault::PinBlocked},
    {Commands::Decipher, 0x6A80, 0xFFFF, CardFault::BadCryptogram},
    {Commands::Sign, 0x6A80, 0xFFFF, CardFault::DataTooLong},
    {Commands::Any, 0x6982, 0xFFFF, CardFault::NotAuthenticated},
    {Commands::Any, 0x6A84, 0xFFFF, CardFault::NoMemory},
};

} // namespace

CardFault cardFaultOf(const char* command, unsigned short sw) {
    for (const StatusRule& rule : statusRules) {
        if ((sw & rule.mask) == rule.sw && isOneOf(rule.commands, command)) {
            return rule.fault;
        }
    }
    return CardFault::Other;
}

} // namespace pkcs11
