// decode over the samples from real cards and hostile dumps (the entries byte for byte:
// SampleTest), and names and certificates as `list` shows them.
#include "ToolProcess.hpp"
#include "mw/Hex.hpp"
#include "tools/p15tool/CertificateText.hpp"
#include "tools/p15tool/Der.hpp"

#include <filesystem>
#include <stdexcept>

namespace p15tool::test {
namespace {

using nlohmann::json;
using namespace std::string_literals;

// The ACOS sample's AODF entry with its label TLV, 0C 04 "User", replaced by `label` of the same
// length.
std::string aodfWithLabel(const std::string& label) {
    const mw::ByteBuffer after = mw::fromHex("030206C03003040101A121301F030304CC000A010102"
                                             "01040201080201088001010401FF300604043F004100");
    return "\x30\x34\x30\x0A"s + label + std::string(after.begin(), after.end());
}

// Every sample decodes but the ODFs their notes call invalid. One row for each way a field is
// shown; card text becomes UTF-8 (T61String and non-UTF-8 read as Latin-1).
TEST(Decode, SamplesAndDumpsDecodeOrFailInOneLine) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(P15_SAMPLES_DIR)) {
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        files += entry.path().extension() == ".hex";
        if (entry.path().extension() != ".hex" ||
            name.find("starcos3x-esign") != std::string::npos) {
            continue;
        }
        EXPECT_TRUE(contains(runTool({"decode", entry.path().string()}).out, "entries:"));
        const json decoded = runTool({"--json", "decode", entry.path().string()}).json();
        for (const json& each : decoded["entries"]) {
            EXPECT_TRUE(each.contains("type")) << each;
        }
    }
    EXPECT_EQ(files, 20);

    const TemporaryDirectory directory;
    const std::string entry = aodfWithLabel("\x0C\x04User"s),
                      label = "/entries/0/commonObjectAttributes/label";
    // Token information with the members no sample has: seInfo, recordInfo.
    const std::string tokenInfo = "\x30\x19\x02\x01\x00\x04\x02\x01\x02\x03\x01\x00\x30\x08\x30"
                                  "\x06\x02\x01\x01\x06\x01\x53\xA1\x03\x80\x01\x10"s;
    const auto sample = [](const char* name) {
        return readFile(P15_SAMPLES_DIR "/"s + name + ".hex");
    };
    // clang-format off
    const std::tuple<std::string, std::string, std::string, json> decoded[] = {
        {"acos5-64_aodf.hex", sample("acos5-64_aodf"), "/entries/0/classAttributes/authId", "01"},
        {"acos5-64_aodf.hex", sample("acos5-64_aodf"), "/entries/0/typeAttributes/path/path", "3F004100"},
        {"acos5-64_dir.hex", sample("acos5-64_dir"), "/entries/0/aidText", "ACOSPKCS-15v1.00"},
        {"aosp-gp-seac_dodf.hex", sample("aosp-gp-seac_dodf"), "/entries/0/supported", false},
        {"be-eid-virtual_prkdf.hex", sample("be-eid-virtual_prkdf"), "/entries/0/classAttributes/keyReference", 0x82},
        {"be-eid-virtual_prkdf.hex", sample("be-eid-virtual_prkdf"), "/entries/1/classAttributes/usage", {"nonRepudiation"}},
        {"es-accv-gyd-smartcafe_odf.hex", sample("es-accv-gyd-smartcafe_odf"), "/padding", 8},
        {"sc-hsm-jpm_tokeninfo.hex", sample("sc-hsm-jpm_tokeninfo"), "/entries/0/serialNumber", json()}, // absent, not empty
        {"uy-eid-gemalto_aodf.hex", sample("uy-eid-gemalto_aodf"), "/entries/0/typeAttributes/lastPinChange", "20131011133817Z"},
        {"uy-eid-gemalto_aodf.hex", sample("uy-eid-gemalto_aodf"), "/entries/0/commonObjectAttributes/accessControlRules/0/condition", "always"},
        {"t61_aodf.bin", aodfWithLabel("\x14\x04"s + "Caf\xE9"), label, "Caf\xC3\xA9"},
        {"nul_aodf.bin", aodfWithLabel("\x0C\x04Us\0\0"s), label, "Us"},
        {"latin_aodf.bin", aodfWithLabel("\x0C\x04\xC3\xA9t\xE9"s), label, "\xC3\x83\xC2\xA9t\xC3\xA9"},
        {"dump.hex", "# Caf\xC3\xA9\n" + sample("sc-hsm-jpm_tokeninfo"), "/entries/0/tokenflags", {"prnGeneration"}},
        {"padded_aodf.bin", entry + "\xFF\xFF\xFF", "/padding", 3},
        {"tokeninfo.bin", tokenInfo, "/entries/0/seInfo", json::parse(R"([{"se": 1, "owner": "2.3"}])")},
        {"tokeninfo.bin", tokenInfo, "/entries/0/recordInfo/oDFRecordLength", 16}};
    const std::tuple<std::string, std::string, int, const char*> refused[] = {
        {"de-starcos3x-esign_cia-odf.hex", sample("de-starcos3x-esign_cia-odf"), 1, "is not a valid odf"},
        {"de-starcos3x-esign_pkcs15-odf.hex", sample("de-starcos3x-esign_pkcs15-odf"), 1, "is not a valid odf"},
        {"truncated_aodf.bin", entry.substr(0, entry.size() - 1), 1, "truncated"},
        {"overrun_aodf.bin", "\x30\x7F" + entry.substr(2), 1, "beyond"},
        {"junk_aodf.bin", entry + "\0\0\x30"s, 1, "after the padding at byte 56"},
        {"odd_aodf.hex", "# comment\n30 3", 1, "odd number of hex digits"},
        {"letters_aodf.hex", "30 zz", 1, "line 1: 'z' is not a hex digit"},
        {"nameless.bin", entry, 2, "--kind"}};
    // clang-format on
    for (const auto& [name, content, pointer, value] : decoded) {
        SCOPED_TRACE(name + pointer);
        writeFile(directory.file(name), content);
        const ToolResult result = runTool({"decode", "--json", directory.file(name)});
        ASSERT_TRUE(exited(result, 0));
        EXPECT_EQ(result.json().value(json::json_pointer(pointer), json()), value);
    }
    for (const auto& [name, content, exitCode, says] : refused) {
        SCOPED_TRACE(name);
        writeFile(directory.file(name), content);
        const ToolResult refusal = runTool({"decode", directory.file(name)});
        EXPECT_TRUE(exited(refusal, exitCode, says));
        EXPECT_TRUE(refusal.out.empty());
    }
    EXPECT_TRUE(exited(runTool({"decode", "--kind", "xdf", directory.file("dump.hex")}), 2));
}

using der::Bytes;

Bytes bytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// A Name of one RDN holding `attributes` (type and value TLVs each).
mw::ByteBuffer rdnName(const Bytes& attributes) {
    return mw::ByteBuffer(der::sequence({der::tlv(0x31, attributes)}));
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
        {mw::ByteBuffer(der::sequence({})), ""},
    };
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(certificates::nameText(name), expected);
    }
    const Bytes cn = der::objectIdentifier("2.5.4.3");
    // clang-format off
    const mw::ByteBuffer malformed[] = {
        mw::ByteBuffer{0x30, 0x03, 0x31, 0x05, 0x30}, // the SET runs past the SEQUENCE around it
        mw::ByteBuffer{0x30, 0x85, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00}, mw::ByteBuffer{0x30, 0x81}, // a length of five octets, of none
        rdnName(der::sequence({{0x06, 0x01, 0x85}, der::tlv(0x0C, {'a'})})), // an OID whose last octet says more follow
        rdnName(attribute(0x1E, "\0"s)), // a BMPString of an odd length
        rdnName(der::sequence({cn})), rdnName(der::sequence({cn, der::tlv(0x0C, {'a'}), der::tlv(0x0C, {'b'})})), // no value, two
        mw::ByteBuffer{0x30, 0x00, 0x00}}; // bytes after the Name
    // clang-format on
    for (const auto& name : malformed) {
        EXPECT_THROW(certificates::nameText(name), std::runtime_error) << mw::toHex(name);
    }
}

// A certificate of the shape list reads, with a stand-in signature.
Bytes certificate(const Bytes& notBefore, const Bytes& notAfter) {
    const Bytes name = der::name("CN=Alice");
    const Bytes algorithm = der::sequence({der::objectIdentifier("1.2.840.113549.1.1.11")});
    return der::sequence(
        {der::sequence({der::explicitTag(0, der::smallInteger(2)), der::smallInteger(7), algorithm,
                        name, der::sequence({notBefore, notAfter}), name}),
         algorithm, der::bitString({0})});
}

// UTCTime before 2050, GeneralizedTime from then on; the fingerprint of the DER without the padding
// after it (its value: Scenario, against openssl's).
TEST(CertificateText, ValidityAroundTheYear2050AndTheFingerprint) {
    const Bytes der = certificate(der::time(2524607999), der::time(2524608000));
    const Json described =
        certificates::describe(mw::ByteBuffer(der::join({der, {0xFF, 0xFF}})), true);
    EXPECT_EQ(described["notBefore"], "2049-12-31T23:59:59Z");
    EXPECT_EQ(described["notAfter"], "2050-01-01T00:00:00Z");
    EXPECT_EQ(described["issuerDer"], mw::toHex(mw::ByteBuffer(der::name("CN=Alice"))));
    const Json unpadded = certificates::describe(mw::ByteBuffer(der), false);
    EXPECT_EQ(described["sha256Fingerprint"], unpadded["sha256Fingerprint"]);
    EXPECT_FALSE(unpadded.contains("subjectDer"));

    const Bytes good = der::time(0);
    const auto describe = [](const Bytes& notBefore, const Bytes& notAfter) {
        return certificates::describe(mw::ByteBuffer(certificate(notBefore, notAfter)), false);
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
