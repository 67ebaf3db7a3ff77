#include "tools/p15tool/ToolError.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/IPin.hpp"
#include "card/CardException.hpp"
#include "host/CardStatus.hpp"
#include "host/ErrorMessage.hpp"

#include <algorithm>
#include <boost/exception/get_error_info.hpp>
#include <cctype>
#include <cstdio>

namespace p15tool {

namespace {

using app::object::InvalidPinException;

const char* const traceHint = "; --verbose shows the card's commands, P15_TRACE=stderr the "
                              "plugin's operations";

// What the user needs first of a PIN command's refusal; the status word is
// in the --verbose trace.
std::string pinRefusal(const host::CardStatus& status, const RefusedSecret& secret) {
    if (status.fault == host::CardFault::PinBlocked) {
        return secret.name + " blocked: " + secret.whenBlocked;
    }
    if (status.triesLeft < 0) {
        return "wrong " + secret.name + " (the card does not say how many tries are left)";
    }
    if (status.triesLeft > 0) {
        return "wrong " + secret.name + ": " + std::to_string(status.triesLeft) +
               (status.triesLeft == 1 ? " try left" : " tries left");
    }
    return "wrong " + secret.name + ", now blocked: " + secret.whenBlocked;
}

std::string hexWord(unsigned short sw) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "%04X", sw);
    return hex;
}

// The meaning first, then which command got which answer:
// "file not found (Select File: 6A82)", "card removed (Verify)".
std::string cardMeaning(const std::exception& error, const boost::exception& info) {
    const char* const* command = boost::get_error_info<card::Command>(info);
    const char* const* text = boost::get_error_info<card::ErrorText>(info);
    const unsigned short* sw = boost::get_error_info<card::StatusCode>(info);
    if (!text && !sw) {
        return host::errorMessage(error);
    }
    std::string meaning = text ? *text : host::cardStatusOf(command ? *command : nullptr, *sw).text;
    std::string source = command ? *command : "";
    if (sw) {
        source += (source.empty() ? "" : ": ") + hexWord(*sw);
    }
    return source.empty() ? meaning : meaning + " (" + source + ")";
}

Failure describeCardError(const std::exception& error, const boost::exception& info,
                          const RefusedSecret& secret) {
    if (const unsigned short* sw = boost::get_error_info<card::StatusCode>(info)) {
        const char* const* command = boost::get_error_info<card::Command>(info);
        const host::CardStatus status = host::cardStatusOf(command ? *command : nullptr, *sw);
        if (status.fault == host::CardFault::WrongPin ||
            status.fault == host::CardFault::PinBlocked) {
            return {ExitCode::pin, pinRefusal(status, secret)};
        }
    }
    if (dynamic_cast<const card::CardInUseException*>(&error)) {
        return {ExitCode::card,
                cardMeaning(error, info) +
                    "; another program holds the card (a browser, an ssh agent, another "
                    "p15tool): end it, or wait longer with P15_TRANSACTION_TIMEOUT=SECONDS "
                    "(see \"Choosing the card\" in docs/p15tool.md)"};
    }
    if (dynamic_cast<const card::CardException*>(&error)) {
        return {ExitCode::card, cardMeaning(error, info) + traceHint};
    }
    return {ExitCode::card, host::errorMessage(error) + traceHint};
}

// "the User PIN takes 4 to 8 digits; the one given has 9"
Failure describeInvalidPin(const InvalidPinException& error, const RefusedSecret& secret) {
    const std::string name =
        error.role() == InvalidPinException::New ? secret.newName : secret.name;
    const std::string unit = error.digitsOnly() ? "digits" : "characters";
    std::string message = "the " + name + " takes ";
    if (error.fault() == InvalidPinException::NotDigits) {
        message += "digits only; the one given has other characters";
    } else {
        const std::string most =
            error.maximum() ? " to " + std::to_string(error.maximum()) : " or more";
        message += std::to_string(error.minimum()) + most + " " + unit + "; the one given has " +
                   std::to_string(error.given());
    }
    return {ExitCode::usage, message + "; nothing was sent to the card"};
}

// "prkdf" of "EF(PrKDF) 4400": the kind `decode` takes.
std::string decodeKind(const std::string& file) {
    const std::size_t open = file.find('(');
    std::string kind = file.substr(open + 1, file.find(')') - open - 1);
    std::transform(kind.begin(), kind.end(), kind.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return kind;
}

// A directory file the application cannot read names the file, as in
// "EF(PrKDF) 3F00/5015/4402 on the card is not valid DER: ...".
Failure describeInvalidData(const std::exception& error) {
    const auto* info = dynamic_cast<const boost::exception*>(&error);
    const std::string* file = info ? boost::get_error_info<app::ErrorDetail>(*info) : nullptr;
    if (!file) {
        return {ExitCode::failure, host::errorMessage(error)};
    }
    const char* const* text = boost::get_error_info<app::ErrorText>(*info);
    const unsigned int* data = boost::get_error_info<app::ErrorData>(*info);
    std::string reason = text ? *text : error.what();
    if (data) {
        reason += " (" + std::to_string(*data) + ")";
    }
    return {ExitCode::failure, *file + " on the card is not valid DER: " + reason +
                                   "; a dump of the file shows where, with: p15tool decode "
                                   "--kind " +
                                   decodeKind(*file) + " FILE"};
}

} // namespace

Failure describeFailure(const std::exception& error, const RefusedSecret& secret) {
    if (const auto* toolError = dynamic_cast<const ToolError*>(&error)) {
        return {toolError->code(), toolError->what()};
    }
    if (const auto* invalidPin = dynamic_cast<const InvalidPinException*>(&error)) {
        return describeInvalidPin(*invalidPin, secret);
    }
    if (dynamic_cast<const app::InvalidDataException*>(&error)) {
        return describeInvalidData(error);
    }
    const auto* info = dynamic_cast<const boost::exception*>(&error);
    if (info && (dynamic_cast<const card::CardException*>(&error) ||
                 dynamic_cast<const app::ApplicationException*>(&error))) {
        return describeCardError(error, *info, secret);
    }
    return {ExitCode::failure, host::errorMessage(error)};
}

} // namespace p15tool
