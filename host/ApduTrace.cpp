#include "host/ApduTrace.hpp"

#include "card/Apdu.hpp"

#include <cstdio>

namespace host {

namespace {

ApduTraceSink sink = nullptr;

// The name of a command by its INS, odd INS (BER-TLV data) included.
const char* commandName(unsigned char ins) {
    static const struct {
        unsigned char ins;
        const char* name;
    } names[] = {{0x20, "VERIFY"},
                 {0x22, "MANAGE SECURITY ENVIRONMENT"},
                 {0x24, "CHANGE REFERENCE DATA"},
                 {0x2A, "PERFORM SECURITY OPERATION"},
                 {0x2C, "RESET RETRY COUNTER"},
                 {0x46, "GENERATE KEY PAIR"},
                 {0x84, "GET CHALLENGE"},
                 {0x88, "INTERNAL AUTHENTICATE"},
                 {0xA4, "SELECT"},
                 {0xB0, "READ BINARY"},
                 {0xC0, "GET RESPONSE"},
                 {0xCA, "GET DATA"},
                 {0xD6, "UPDATE BINARY"},
                 {0xDA, "PUT DATA"},
                 {0xE0, "CREATE FILE"},
                 {0xE4, "DELETE FILE"}};
    for (const auto& known : names) {
        if (known.ins == (ins & 0xFE)) {
            return known.name;
        }
    }
    return "COMMAND";
}

std::string hexByte(unsigned char byte) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", byte);
    return text;
}

// Lc and Le of a short command; any other body is counted, not parsed.
std::string bodyText(const card::Apdu& command) {
    const std::size_t size = command.bytes().size();
    if (size <= 4) {
        return "";
    }
    const int lc = command.getLc();
    const int le = command.getLe();
    std::string text;
    if (lc >= 0) {
        text += " [" + std::to_string(lc) + " bytes hidden]";
    }
    if (le >= 0) {
        text += " Le " + hexByte(static_cast<unsigned char>(le));
    }
    if (lc < 0 && le < 0) {
        text += " [" + std::to_string(size - 4) + " bytes hidden]";
    }
    return text;
}

std::string answerText(const mw::ByteBuffer* answer) {
    if (!answer || answer->size() < 2) {
        return " -> no status word";
    }
    const std::size_t length = answer->size() - 2;
    std::string text = " -> " + hexByte(answer->get(length)) + hexByte(answer->get(length + 1));
    if (length > 0) {
        text += " [" + std::to_string(length) + " bytes hidden]";
    }
    return text;
}

} // namespace

void setApduTrace(ApduTraceSink newSink) {
    sink = newSink;
}

bool apduTraceOn() {
    return sink != nullptr;
}

std::string apduTraceLine(const card::Apdu& command, const mw::ByteBuffer* answer) {
    const mw::ByteBuffer& bytes = command.bytes();
    if (bytes.size() < 4) {
        return "malformed command of " + std::to_string(bytes.size()) + " bytes" +
               answerText(answer);
    }
    std::string line = commandName(bytes.get(1));
    for (std::size_t i = 0; i < 4; ++i) {
        line += " " + hexByte(bytes.get(i));
    }
    return line + bodyText(command) + answerText(answer);
}

void traceApdu(const card::Apdu& command, const mw::ByteBuffer* answer) {
    if (sink) {
        sink(apduTraceLine(command, answer));
    }
}

} // namespace host
