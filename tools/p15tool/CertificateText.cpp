#include "tools/p15tool/CertificateText.hpp"

#include "mw/Hex.hpp"
#include "tools/p15tool/Text.hpp"

#include <cryptopp/sha.h>

#include <cstdint>
#include <map>
#include <stdexcept>

namespace p15tool::certificates {

namespace {

struct Tlv {
    std::uint8_t tag = 0;
    const std::uint8_t* content = nullptr;
    std::size_t length = 0;
    const std::uint8_t* begin = nullptr; // the tag: content + length ends the TLV

    mw::ByteBuffer der() const {
        return mw::ByteBuffer(begin, static_cast<std::size_t>(content + length - begin));
    }
    std::string text() const { return std::string(content, content + length); }
};

[[noreturn]] void malformed(const char* what) {
    throw std::runtime_error(std::string("certificate: ") + what);
}

// The TLVs of one content, in order; every length is checked against what
// is left of the content around it. Single-byte tags only, which is all
// X.509 uses.
class Reader {
public:
    Reader(const std::uint8_t* data, std::size_t size)
        : at_(data)
        , end_(data + size) {}
    explicit Reader(const Tlv& outer)
        : Reader(outer.content, outer.length) {}

    bool atEnd() const { return at_ == end_; }
    std::uint8_t peekTag() const { return atEnd() ? 0 : *at_; }

    Tlv next(std::uint8_t expectedTag, const char* what) {
        if (end_ - at_ < 2 || *at_ != expectedTag) {
            malformed(what);
        }
        Tlv tlv;
        tlv.begin = at_;
        tlv.tag = *at_++;
        std::size_t length = *at_++;
        if (length & 0x80) {
            const std::size_t count = length & 0x7F;
            if (count == 0 || count > 4 || static_cast<std::size_t>(end_ - at_) < count) {
                malformed(what);
            }
            length = 0;
            for (std::size_t i = 0; i < count; ++i) {
                length = length << 8 | *at_++;
            }
        }
        if (length > static_cast<std::size_t>(end_ - at_)) {
            malformed(what);
        }
        tlv.content = at_;
        tlv.length = length;
        at_ += length;
        return tlv;
    }

    Tlv nextAny(const char* what) { return next(peekTag(), what); }

private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

constexpr std::uint8_t sequenceTag = 0x30;
constexpr std::uint8_t setTag = 0x31;
constexpr std::uint8_t oidTag = 0x06;

std::string dottedOid(const Tlv& oid) {
    std::string dotted;
    std::uint64_t arc = 0;
    for (std::size_t i = 0; i < oid.length; ++i) {
        if (arc >> 56) {
            malformed("object identifier arc too large");
        }
        arc = arc << 7 | (oid.content[i] & 0x7F);
        if (oid.content[i] & 0x80) {
            continue;
        }
        if (dotted.empty()) {
            const std::uint64_t first = arc < 80 ? arc / 40 : 2;
            dotted = std::to_string(first) + "." + std::to_string(arc - first * 40);
        } else {
            dotted += "." + std::to_string(arc);
        }
        arc = 0;
    }
    if (dotted.empty() || (oid.content[oid.length - 1] & 0x80)) {
        malformed("bad object identifier");
    }
    return dotted;
}

// The names `enrol --subject` takes, so that a name listed can be typed back.
const std::map<std::string, std::string> attributeNames{
    {"2.5.4.3", "CN"},
    {"2.5.4.4", "SN"},
    {"2.5.4.5", "serialNumber"},
    {"2.5.4.6", "C"},
    {"2.5.4.7", "L"},
    {"2.5.4.8", "ST"},
    {"2.5.4.9", "STREET"},
    {"2.5.4.10", "O"},
    {"2.5.4.11", "OU"},
    {"2.5.4.12", "title"},
    {"2.5.4.42", "GN"},
    {"0.9.2342.19200300.100.1.1", "UID"},
    {"0.9.2342.19200300.100.1.25", "DC"},
    {"1.2.840.113549.1.9.1", "emailAddress"},
};

void appendUtf8(std::string& out, std::uint32_t c) {
    if (c >= 0xD800 && c < 0xE000) {
        c = 0xFFFD;
    }
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x110000) {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        appendUtf8(out, 0xFFFD);
    }
}

// BMPString (2 octets a character) and UniversalString (4), big-endian.
std::string wideToUtf8(const Tlv& value, std::size_t width) {
    if (value.length % width) {
        malformed("string of a partial character");
    }
    std::string out;
    for (std::size_t i = 0; i < value.length; i += width) {
        std::uint32_t c = 0;
        for (std::size_t k = 0; k < width; ++k) {
            c = c << 8 | value.content[i + k];
        }
        appendUtf8(out, c);
    }
    return out;
}

// RFC 4514 section 2.4, and \XX for every control character so that a card
// cannot move a terminal's cursor or colour the output.
std::string escaped(const std::string& value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto c = static_cast<unsigned char>(value[i]);
        const bool edgeSpace = c == ' ' && (i == 0 || i + 1 == value.size());
        if (c < 0x20 || c == 0x7F) {
            out += {'\\', digits[c >> 4], digits[c & 0x0F]};
            continue;
        }
        if (std::string(",+\"\\<>;").find(static_cast<char>(c)) != std::string::npos || edgeSpace ||
            (c == '#' && i == 0)) {
            out += '\\';
        }
        out += static_cast<char>(c);
    }
    return out;
}

// The value of a named attribute as text; a kind of string that has no text
// form is #hex of its DER, as for attributes without a name.
std::string valueText(const Tlv& value) {
    switch (value.tag) {
    case 0x0C: // UTF8String
    case 0x12: // NumericString
    case 0x13: // PrintableString
    case 0x14: // TeletexString, read as Latin-1 as cards write it
    case 0x16: // IA5String
    case 0x1A: // VisibleString
        return escaped(displayText(value.text()));
    case 0x1C:
        return escaped(wideToUtf8(value, 4));
    case 0x1E:
        return escaped(wideToUtf8(value, 2));
    default:
        return "#" + mw::toHex(value.der());
    }
}

std::string attributeText(const Tlv& typeAndValue) {
    Reader reader(typeAndValue);
    const std::string oid = dottedOid(reader.next(oidTag, "attribute without a type"));
    const Tlv value = reader.nextAny("attribute without a value");
    if (!reader.atEnd()) {
        malformed("attribute with more than a type and a value");
    }
    const auto name = attributeNames.find(oid);
    if (name == attributeNames.end()) {
        return oid + "=#" + mw::toHex(value.der());
    }
    return name->second + "=" + valueText(value);
}

// "2026-11-25T22:00:00Z" from the UTCTime or GeneralizedTime forms X.509
// requires (RFC 5280 4.1.2.5): whole seconds, Zulu.
std::string timeText(const Tlv& time) {
    std::string text = time.text();
    const bool utc = time.tag == 0x17 && text.size() == 13;
    if (!utc && !(time.tag == 0x18 && text.size() == 15)) {
        malformed("validity time not in the X.509 form");
    }
    if (utc) {
        text.insert(0, text[0] >= '5' ? "19" : "20");
    }
    for (std::size_t i = 0; i < 14; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            malformed("validity time not in the X.509 form");
        }
    }
    if (text[14] != 'Z') {
        malformed("validity time not in UTC");
    }
    return text.substr(0, 4) + "-" + text.substr(4, 2) + "-" + text.substr(6, 2) + "T" +
           text.substr(8, 2) + ":" + text.substr(10, 2) + ":" + text.substr(12, 2) + "Z";
}

std::string fingerprint(const mw::ByteBuffer& certificate) {
    CryptoPP::SHA256 sha;
    mw::ByteBuffer digest(CryptoPP::SHA256::DIGESTSIZE);
    sha.CalculateDigest(digest.data(), certificate.data(), certificate.size());
    const std::string hexDigits = mw::toHex(digest);
    std::string text;
    for (std::size_t i = 0; i < hexDigits.size(); i += 2) {
        text += (i ? ":" : "") + hexDigits.substr(i, 2);
    }
    return text;
}

} // namespace

std::string nameText(const mw::ByteBuffer& der) {
    Reader outer(der.data(), der.size());
    const Tlv name = outer.next(sequenceTag, "a name is not a SEQUENCE");
    if (!outer.atEnd()) {
        malformed("bytes after the name");
    }
    std::string text;
    for (Reader rdns(name); !rdns.atEnd();) {
        std::string rdnText;
        const Tlv rdn = rdns.next(setTag, "a name's part is not a SET");
        for (Reader attributes(rdn); !attributes.atEnd();) {
            rdnText += (rdnText.empty() ? "" : "+") +
                       attributeText(attributes.next(sequenceTag, "bad attribute"));
        }
        text = rdnText + (text.empty() ? "" : ",") + text;
    }
    return text;
}

Json describe(const mw::ByteBuffer& certificate, bool withDer) {
    Reader outer(certificate.data(), certificate.size());
    const Tlv whole = outer.next(sequenceTag, "not a SEQUENCE");
    Reader body(whole);
    Reader toBeSigned(body.next(sequenceTag, "no tbsCertificate"));
    if (toBeSigned.peekTag() == 0xA0) {
        toBeSigned.nextAny("bad version");
    }
    toBeSigned.next(0x02, "no serial number");
    toBeSigned.next(sequenceTag, "no signature algorithm");
    const mw::ByteBuffer issuer = toBeSigned.next(sequenceTag, "no issuer").der();
    Reader validity(toBeSigned.next(sequenceTag, "no validity"));
    const std::string notBefore = timeText(validity.nextAny("no notBefore"));
    const std::string notAfter = timeText(validity.nextAny("no notAfter"));
    const mw::ByteBuffer subject = toBeSigned.next(sequenceTag, "no subject").der();

    Json out{{"subject", nameText(subject)},
             {"issuer", nameText(issuer)},
             {"notBefore", notBefore},
             {"notAfter", notAfter},
             {"sha256Fingerprint", fingerprint(whole.der())}};
    if (withDer) {
        out["subjectDer"] = mw::toHex(subject);
        out["issuerDer"] = mw::toHex(issuer);
    }
    return out;
}

} // namespace p15tool::certificates
