#include "tools/p15tool/Der.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>

namespace p15tool::der {

namespace {

enum Tag : std::uint8_t {
    booleanTag = 0x01,
    integerTag = 0x02,
    bitStringTag = 0x03,
    octetStringTag = 0x04,
    nullTag = 0x05,
    oidTag = 0x06,
    utf8StringTag = 0x0C,
    printableStringTag = 0x13,
    ia5StringTag = 0x16,
    utcTimeTag = 0x17,
    generalizedTimeTag = 0x18,
    sequenceTag = 0x30,
    setTag = 0x31,
};

void appendBase128(Bytes& out, unsigned long value) {
    Bytes digits{static_cast<std::uint8_t>(value & 0x7F)};
    while (value >>= 7) {
        digits.push_back(static_cast<std::uint8_t>(0x80 | (value & 0x7F)));
    }
    out.insert(out.end(), digits.rbegin(), digits.rend());
}

struct AttributeType {
    const char* keyword;
    const char* oid;
    std::uint8_t stringTag;
};

const AttributeType attributeTypes[] = {
    {"CN", "2.5.4.3", utf8StringTag},
    {"SN", "2.5.4.4", utf8StringTag},
    {"serialNumber", "2.5.4.5", printableStringTag},
    {"C", "2.5.4.6", printableStringTag},
    {"L", "2.5.4.7", utf8StringTag},
    {"ST", "2.5.4.8", utf8StringTag},
    {"O", "2.5.4.10", utf8StringTag},
    {"OU", "2.5.4.11", utf8StringTag},
    {"title", "2.5.4.12", utf8StringTag},
    {"GN", "2.5.4.42", utf8StringTag},
    {"UID", "0.9.2342.19200300.100.1.1", utf8StringTag},
    {"DC", "0.9.2342.19200300.100.1.25", ia5StringTag},
    {"emailAddress", "1.2.840.113549.1.9.1", ia5StringTag},
};

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    const auto last = text.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

// "CN=A\,B, O=C" as its attribute texts: "CN=A,B" and "O=C".
std::vector<std::string> splitAttributes(const std::string& text) {
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            parts.back() += text[++i];
        } else if (text[i] == ',') {
            parts.emplace_back();
        } else {
            parts.back() += text[i];
        }
    }
    return parts;
}

bool isPrintableStringText(const std::string& value) {
    return std::all_of(value.begin(), value.end(), [](unsigned char c) {
        return std::isalnum(c) ||
               std::string(" '()+,-./:=?").find(static_cast<char>(c)) != std::string::npos;
    });
}

Bytes attribute(const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("\"" + text + "\" is not TYPE=value");
    }
    const std::string keyword = trimmed(text.substr(0, equals));
    const std::string value = trimmed(text.substr(equals + 1));
    const auto* type = std::find_if(std::begin(attributeTypes), std::end(attributeTypes),
                                    [&](const AttributeType& t) { return keyword == t.keyword; });
    if (type == std::end(attributeTypes)) {
        throw std::invalid_argument("unknown attribute type \"" + keyword +
                                    "\"; use CN, C, L, ST, O, OU, SN, GN, serialNumber, title, "
                                    "DC, UID or emailAddress");
    }
    if (value.empty()) {
        throw std::invalid_argument(keyword + " has no value");
    }
    const bool ascii = std::all_of(value.begin(), value.end(),
                                   [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
    if ((type->stringTag == printableStringTag && !isPrintableStringText(value)) ||
        (type->stringTag == ia5StringTag && !ascii)) {
        throw std::invalid_argument(keyword + " takes ASCII letters, digits and simple "
                                              "punctuation only");
    }
    if (keyword == "C" && value.size() != 2) {
        throw std::invalid_argument("C takes a two-letter country code");
    }
    return set({sequence(
        {objectIdentifier(type->oid), tlv(type->stringTag, Bytes(value.begin(), value.end()))})});
}

} // namespace

Bytes tlv(std::uint8_t tag, const Bytes& content) {
    Bytes out{tag};
    const std::size_t size = content.size();
    if (size < 0x80) {
        out.push_back(static_cast<std::uint8_t>(size));
    } else {
        Bytes length;
        for (std::size_t rest = size; rest; rest >>= 8) {
            length.insert(length.begin(), static_cast<std::uint8_t>(rest & 0xFF));
        }
        out.push_back(static_cast<std::uint8_t>(0x80 | length.size()));
        out.insert(out.end(), length.begin(), length.end());
    }
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Bytes sequence(std::initializer_list<Bytes> parts) {
    return tlv(sequenceTag, join(parts));
}

Bytes set(std::initializer_list<Bytes> parts) {
    return tlv(setTag, join(parts));
}

Bytes explicitTag(unsigned n, const Bytes& inner) {
    return tlv(static_cast<std::uint8_t>(0xA0 | n), inner);
}

Bytes unsignedInteger(const Bytes& bigEndian) {
    auto first = std::find_if(bigEndian.begin(), bigEndian.end(), [](auto b) { return b != 0; });
    Bytes content(first, bigEndian.end());
    if (content.empty() || content.front() & 0x80) {
        content.insert(content.begin(), 0x00);
    }
    return tlv(integerTag, content);
}

Bytes smallInteger(unsigned value) {
    Bytes bytes;
    for (; value; value >>= 8) {
        bytes.insert(bytes.begin(), static_cast<std::uint8_t>(value & 0xFF));
    }
    return unsignedInteger(bytes);
}

Bytes boolean(bool value) {
    return tlv(booleanTag, {static_cast<std::uint8_t>(value ? 0xFF : 0x00)});
}

Bytes null() {
    return tlv(nullTag, {});
}

Bytes octetString(const Bytes& content) {
    return tlv(octetStringTag, content);
}

Bytes bitString(const Bytes& content) {
    Bytes withUnusedBits{0x00};
    withUnusedBits.insert(withUnusedBits.end(), content.begin(), content.end());
    return tlv(bitStringTag, withUnusedBits);
}

Bytes objectIdentifier(const std::string& dotted) {
    std::vector<unsigned long> arcs;
    std::size_t at = 0;
    while (at <= dotted.size()) {
        const std::size_t dot = std::min(dotted.find('.', at), dotted.size());
        const std::string arc = dotted.substr(at, dot - at);
        if (arc.empty() || !std::all_of(arc.begin(), arc.end(), ::isdigit) || arc.size() > 9) {
            throw std::invalid_argument("\"" + dotted + "\" is not a dotted object identifier");
        }
        arcs.push_back(std::stoul(arc));
        at = dot + 1;
    }
    if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39)) {
        throw std::invalid_argument("\"" + dotted + "\" is not a dotted object identifier");
    }
    Bytes content;
    appendBase128(content, arcs[0] * 40 + arcs[1]);
    for (std::size_t i = 2; i < arcs.size(); ++i) {
        appendBase128(content, arcs[i]);
    }
    return tlv(oidTag, content);
}

Bytes time(std::time_t when) {
    std::tm utc{};
    gmtime_r(&when, &utc);
    const int year = utc.tm_year + 1900;
    char text[32];
    const bool utcTime = year >= 1950 && year < 2050;
    std::snprintf(text, sizeof text,
                  utcTime ? "%02d%02d%02d%02d%02d%02dZ" : "%04d%02d%02d%02d%02d%02dZ",
                  utcTime ? year % 100 : year, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                  utc.tm_sec);
    const std::string value(text);
    return tlv(utcTime ? utcTimeTag : generalizedTimeTag, Bytes(value.begin(), value.end()));
}

Bytes name(const std::string& text) {
    Bytes rdns;
    for (const std::string& part : splitAttributes(text)) {
        const Bytes rdn = attribute(part);
        rdns.insert(rdns.end(), rdn.begin(), rdn.end());
    }
    return tlv(sequenceTag, rdns);
}

} // namespace p15tool::der
