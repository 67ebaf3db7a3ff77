// Names and certificates as `list` shows them, from DER a card may hold: escapes that keep the text
// unambiguous and safe to print, and refusals of lengths that run past their template.
#include "tools/p15tool/CertificateText.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Der.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace p15tool::test {
namespace {

using der::Bytes;
using namespace std::string_literals;

Bytes bytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

mw::ByteBuffer buffer(const Bytes& bytes) {
    return mw::ByteBuffer(bytes.data(), bytes.size());
}

// A Name of one RDN holding `attributes` (type and value TLVs each).
mw::ByteBuffer rdnName(const Bytes& attributes) {
    return buffer(der::sequence({der::tlv(0x31, attributes)}));
}

// An attribute (a common name unless `oid` says otherwise) whose value has the tag `tag`.
Bytes attribute(std::uint8_t tag, const std::string& value, const std::string& oid = "2.5.4.3") {
    return der::sequence({der::objectIdentifier(oid), der::tlv(tag, bytes(value))});
}

TEST(CertificateText, NamesReadAsRfc4514TextOrAreRefused) {
    const std::pair<mw::ByteBuffer, std::string> rows[] = {
        {rdnName(der::join({attribute(0x0C, "a"), attribute(0x13, "b", "2.5.4.10")})), "CN=a+O=b"},
        {rdnName(attribute(0x0C, "#x+\"<>; ")), "CN=\\#x\\+\\\"\\<\\>\\;\\ "},
        {rdnName(attribute(0x0C, " \x1b[31m\x7f")), "CN=\\ \\1B[31m\\7F"},
        {rdnName(attribute(0x1E, "\0Z\0\xEB"s)), "CN=Z\xC3\xAB"},
        {rdnName(attribute(0x0C, "Z\xEB")), "CN=Z\xC3\xAB"}, // not UTF-8: Latin-1
        {rdnName(attribute(0x13, "x", "1.2.3.4")), "1.2.3.4=#130178"},
        {rdnName(attribute(0x04, "\x01")), "CN=#040101"},
        {buffer(der::sequence({})), ""},
    };
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(certificates::nameText(name), expected);
    }
    const Bytes cn = der::objectIdentifier("2.5.4.3");
    // clang-format off
    const mw::ByteBuffer malformed[] = {
        buffer({0x30, 0x03, 0x31, 0x05, 0x30}), // the SET runs past the SEQUENCE around it
        buffer({0x30, 0x85, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00}), buffer({0x30, 0x81}), // a length of five octets, of none
        rdnName(der::sequence({{0x06, 0x01, 0x85}, der::tlv(0x0C, {'a'})})), // an OID whose last octet says more follow
        rdnName(attribute(0x1E, "\0"s)), // a BMPString of an odd length
        rdnName(der::sequence({cn})), rdnName(der::sequence({cn, der::tlv(0x0C, {'a'}), der::tlv(0x0C, {'b'})})), // no value, two
        buffer({0x30, 0x00, 0x00})}; // bytes after the Name
    // clang-format on
    for (const auto& name : malformed) {
        EXPECT_THROW(certificates::nameText(name), std::runtime_error) << mw::toHex(name);
    }
}

// A certificate of the shape list reads: no signature check is made, so the signature is a
// stand-in.
Bytes certificate(const Bytes& notBefore, const Bytes& notAfter) {
    const Bytes name = der::name("CN=Alice");
    const Bytes algorithm = der::sequence({der::objectIdentifier("1.2.840.113549.1.1.11")});
    return der::sequence(
        {der::sequence({der::explicitTag(0, der::smallInteger(2)), der::smallInteger(7), algorithm,
                        name, der::sequence({notBefore, notAfter}), name}),
         algorithm, der::bitString({0})});
}

// Times on both sides of 2050 (UTCTime before, GeneralizedTime from then on), the fingerprint of
// the DER alone, not of the padding after it (its value: Scenario, against openssl's); times
// outside the X.509 form are refused.
TEST(CertificateText, ValidityAroundTheYear2050AndTheFingerprint) {
    const Bytes der = certificate(der::time(2524607999), der::time(2524608000));
    const Json described = certificates::describe(buffer(der::join({der, {0xFF, 0xFF}})), true);
    EXPECT_EQ(described["notBefore"], "2049-12-31T23:59:59Z");
    EXPECT_EQ(described["notAfter"], "2050-01-01T00:00:00Z");
    EXPECT_EQ(described["issuerDer"], mw::toHex(buffer(der::name("CN=Alice"))));
    const Json unpadded = certificates::describe(buffer(der), false);
    EXPECT_EQ(described["sha256Fingerprint"], unpadded["sha256Fingerprint"]);
    EXPECT_FALSE(unpadded.contains("subjectDer"));

    const Bytes good = der::time(0);
    const auto describe = [](const Bytes& notBefore, const Bytes& notAfter) {
        return certificates::describe(buffer(certificate(notBefore, notAfter)), false);
    };
    for (const char* time : {"500101000000", "5001010000Z", "500101000000+0100", "5O0101000000Z"}) {
        EXPECT_THROW(describe(der::tlv(0x17, bytes(time)), good), std::runtime_error) << time;
    }
    EXPECT_THROW(describe(good, der::tlv(0x18, bytes("20500101000000.5Z"))), std::runtime_error);
    EXPECT_EQ(describe(der::tlv(0x17, bytes("500101000000Z")), good)["notBefore"],
              "1950-01-01T00:00:00Z");
}

} // namespace
} // namespace p15tool::test
