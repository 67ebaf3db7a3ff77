// Names and certificates as `list` shows them, from DER a card may hold:
// escapes that keep the text unambiguous and safe to print, and refusals of
// lengths that run past their template.
#include "tools/p15tool/CertificateText.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/Der.hpp"

#include <cryptopp/sha.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace p15tool::test {
namespace {

using der::Bytes;

mw::ByteBuffer buffer(const Bytes& bytes) {
    return mw::ByteBuffer(bytes.data(), bytes.size());
}

// A Name of one RDN holding `attributes` (type and value TLVs each).
mw::ByteBuffer rdnName(const Bytes& attributes) {
    return buffer(der::sequence({der::tlv(0x31, attributes)}));
}

Bytes attribute(const std::string& oid, std::uint8_t tag, const Bytes& value) {
    return der::sequence({der::objectIdentifier(oid), der::tlv(tag, value)});
}

Bytes text(const std::string& value) {
    return Bytes(value.begin(), value.end());
}

TEST(CertificateText, NamesReadAsRfc4514Text) {
    const std::string cn = "2.5.4.3";
    const std::pair<mw::ByteBuffer, std::string> rows[] = {
        {buffer(der::name("C=DE,O=Example,CN=a\\,b")), "CN=a\\,b,O=Example,C=DE"},
        {rdnName(
             der::join({attribute(cn, 0x0C, text("a")), attribute("2.5.4.10", 0x13, text("b"))})),
         "CN=a+O=b"},
        {rdnName(attribute(cn, 0x0C, text("#x+\"<>; "))), "CN=\\#x\\+\\\"\\<\\>\\;\\ "},
        {rdnName(attribute(cn, 0x0C, text(" \x1b[31m\x7f"))), "CN=\\ \\1B[31m\\7F"},
        {rdnName(attribute(cn, 0x1E, {0x00, 'Z', 0x00, 0xEB})), "CN=Z\xC3\xAB"},
        {rdnName(attribute(cn, 0x0C, {'Z', 0xEB})), "CN=Z\xC3\xAB"}, // not UTF-8: Latin-1
        {rdnName(attribute("1.2.3.4", 0x13, text("x"))), "1.2.3.4=#130178"},
        {rdnName(attribute(cn, 0x04, {0x01})), "CN=#040101"},
        {buffer(der::sequence({})), ""},
    };
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(certificates::nameText(name), expected);
    }
}

TEST(CertificateText, MalformedNamesAreRefused) {
    const Bytes cn = der::objectIdentifier("2.5.4.3");
    const mw::ByteBuffer rows[] = {
        // The SET's length runs past the SEQUENCE around it.
        buffer({0x30, 0x03, 0x31, 0x05, 0x30}),
        // A length of five octets, and a long form with nothing after it.
        buffer({0x30, 0x85, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00}),
        buffer({0x30, 0x81}),
        // An object identifier whose last octet says more follow.
        rdnName(der::sequence({{0x06, 0x01, 0x85}, der::tlv(0x0C, text("a"))})),
        // A BMPString of an odd length, an attribute without a value or with two.
        rdnName(attribute("2.5.4.3", 0x1E, {0x00})),
        rdnName(der::sequence({cn})),
        rdnName(der::sequence({cn, der::tlv(0x0C, text("a")), der::tlv(0x0C, text("b"))})),
        // Bytes after the Name.
        buffer({0x30, 0x00, 0x00}),
    };
    for (const auto& name : rows) {
        EXPECT_THROW(certificates::nameText(name), std::runtime_error) << mw::toHex(name);
    }
}

// A certificate of the shape list reads: no signature check is made, so the
// signature is a stand-in.
Bytes certificate(const Bytes& notBefore, const Bytes& notAfter) {
    const Bytes name = der::name("CN=Alice");
    const Bytes algorithm = der::sequence({der::objectIdentifier("1.2.840.113549.1.1.11")});
    return der::sequence(
        {der::sequence({der::explicitTag(0, der::smallInteger(2)), der::smallInteger(7), algorithm,
                        name, der::sequence({notBefore, notAfter}), name}),
         algorithm, der::bitString({0})});
}

TEST(CertificateText, ValidityOnBothSidesOf2050AndTheFingerprintOfTheDerAlone) {
    const Bytes der = certificate(der::time(2524607999), der::time(2524608000));
    const Json described = certificates::describe(buffer(der::join({der, {0xFF, 0xFF}})), true);
    EXPECT_EQ(described["notBefore"], "2049-12-31T23:59:59Z");
    EXPECT_EQ(described["notAfter"], "2050-01-01T00:00:00Z");
    EXPECT_EQ(described["subject"], "CN=Alice");
    EXPECT_EQ(described["issuerDer"], mw::toHex(buffer(der::name("CN=Alice"))));

    mw::ByteBuffer digest(CryptoPP::SHA256::DIGESTSIZE);
    CryptoPP::SHA256().CalculateDigest(digest.data(), der.data(), der.size());
    std::string fingerprint = described["sha256Fingerprint"];
    fingerprint.erase(std::remove(fingerprint.begin(), fingerprint.end(), ':'), fingerprint.end());
    EXPECT_EQ(fingerprint, mw::toHex(digest));
    EXPECT_FALSE(certificates::describe(buffer(der), false).contains("subjectDer"));
}

TEST(CertificateText, TimesOutsideTheX509FormAreRefused) {
    const Bytes good = der::time(0);
    const auto describe = [](const Bytes& notBefore, const Bytes& notAfter) {
        return certificates::describe(buffer(certificate(notBefore, notAfter)), false);
    };
    const auto utcTime = [](const char* time) { return der::tlv(0x17, text(time)); };
    for (const char* time : {"500101000000", "5001010000Z", "500101000000+0100", "5O0101000000Z"}) {
        EXPECT_THROW(describe(utcTime(time), good), std::runtime_error) << time;
    }
    EXPECT_THROW(describe(good, der::tlv(0x18, text("20500101000000.5Z"))), std::runtime_error);
    EXPECT_EQ(describe(utcTime("500101000000Z"), good)["notBefore"], "1950-01-01T00:00:00Z");
}

} // namespace
} // namespace p15tool::test
