#include "tools/p15tool/ToolError.hpp"

#include "app/ApplicationException.hpp"
#include "card/CardException.hpp"
#include "host/ErrorMessage.hpp"

#include <boost/exception/get_error_info.hpp>

namespace p15tool {

namespace {

// Status words of a refused verification: 63Cx (x tries left), 6983
// (authentication method blocked) and 6984 (reference data not usable).
bool isPinRefusal(unsigned short sw) {
    return (sw & 0xFFF0) == 0x63C0 || sw == 0x6983 || sw == 0x6984;
}

std::string pinAdvice(unsigned short sw, const RefusedSecret& secret) {
    if ((sw & 0xFFF0) == 0x63C0) {
        const unsigned triesLeft = sw & 0x0F;
        if (triesLeft > 0) {
            return "; wrong " + secret.name + ", " + std::to_string(triesLeft) +
                   (triesLeft == 1 ? " try left" : " tries left");
        }
        return "; wrong " + secret.name + ", which is now blocked: " + secret.whenBlocked;
    }
    return "; the " + secret.name + " is blocked: " + secret.whenBlocked;
}

Failure describeCardError(const std::exception& error, const boost::exception& info,
                          const RefusedSecret& secret) {
    const std::string message = host::errorMessage(error);
    if (const unsigned short* sw = boost::get_error_info<card::StatusCode>(info)) {
        if (isPinRefusal(*sw)) {
            return {ExitCode::pin, message + pinAdvice(*sw, secret)};
        }
    }
    return {ExitCode::card, message + "; P15_TRACE=stderr shows which operation failed"};
}

} // namespace

Failure describeFailure(const std::exception& error, const RefusedSecret& secret) {
    if (const auto* toolError = dynamic_cast<const ToolError*>(&error)) {
        return {toolError->code(), toolError->what()};
    }
    if (dynamic_cast<const app::InvalidDataException*>(&error)) {
        return {ExitCode::failure, host::errorMessage(error)};
    }
    const auto* info = dynamic_cast<const boost::exception*>(&error);
    if (info && (dynamic_cast<const card::CardException*>(&error) ||
                 dynamic_cast<const app::ApplicationException*>(&error))) {
        return describeCardError(error, *info, secret);
    }
    return {ExitCode::failure, host::errorMessage(error)};
}

} // namespace p15tool
