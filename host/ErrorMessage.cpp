#include "host/ErrorMessage.hpp"

#include "app/ApplicationException.hpp"
#include "card/CardException.hpp"
#include "host/CardStatus.hpp"

#include <boost/exception/get_error_info.hpp>
#include <cstdio>

namespace host {

namespace {

template <class Info> void appendText(std::string& message, const boost::exception& e) {
    if (const char* const* text = boost::get_error_info<Info>(e)) {
        message += ": ";
        message += *text;
    }
}

template <class Info> void appendNumber(std::string& message, const boost::exception& e) {
    if (const unsigned int* number = boost::get_error_info<Info>(e)) {
        message += " (" + std::to_string(*number) + ")";
    }
}

void appendStatus(std::string& message, const boost::exception& e) {
    if (const unsigned short* sw = boost::get_error_info<card::StatusCode>(e)) {
        const char* const* command = boost::get_error_info<card::Command>(e);
        char hex[8];
        std::snprintf(hex, sizeof hex, "%04X", *sw);
        message += std::string(": ") + hex + " (" +
                   cardStatusOf(command ? *command : nullptr, *sw).text + ")";
    }
}

} // namespace

std::string errorMessage(const std::exception& e) {
    std::string message = e.what();
    const auto* info = dynamic_cast<const boost::exception*>(&e);
    if (!info) {
        return message;
    }
    appendText<card::Command>(message, *info);
    appendText<card::ErrorText>(message, *info);
    appendStatus(message, *info);
    appendText<app::ErrorText>(message, *info);
    appendNumber<app::ErrorData>(message, *info);
    return message;
}

} // namespace host
